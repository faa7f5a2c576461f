#!/usr/bin/env bash
# Installs the packages, builds Tamvex and starts the desktop application.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
BUILD_DIR="${TAMVEX_BUILD_DIR:-build}"
cmake -S . -B "$BUILD_DIR" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo ${TAMVEX_CMAKE_ARGS:-}
cmake --build "$BUILD_DIR" -j2 --target tamvex
exec "$BUILD_DIR/src/tamvex" "$@"
