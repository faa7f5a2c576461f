#!/usr/bin/env bash
# Installs the packages, builds everything and runs the whole test suite with CTest.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
BUILD_DIR="${TAMVEX_BUILD_DIR:-build}"
cmake -S . -B "$BUILD_DIR" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTAMVEX_WERROR=ON ${TAMVEX_CMAKE_ARGS:-}
cmake --build "$BUILD_DIR" -j2
cd "$BUILD_DIR"
ctest --output-on-failure -j2 --timeout 600
