#!/usr/bin/env bash
# Installs the packages, builds Tamvex and starts the desktop application.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
BUILD_DIR="${TAMVEX_BUILD_DIR:-build}"
# whisper.cpp's release archive beside the checkout (development and CI machines) saves fetching it.
WHISPER_ARCHIVE="$(cd .. && pwd)/shared/deps/whisper.cpp-1.9.3.tar.gz"
if [ -f "$WHISPER_ARCHIVE" ]; then
  TAMVEX_CMAKE_ARGS="-DTAMVEX_WHISPER_SOURCE=$WHISPER_ARCHIVE ${TAMVEX_CMAKE_ARGS:-}"
fi
cmake -S . -B "$BUILD_DIR" -G Ninja -DCMAKE_BUILD_TYPE=Release ${TAMVEX_CMAKE_ARGS:-}
cmake --build "$BUILD_DIR" -j2 --target tamvex
exec "$BUILD_DIR/src/tamvex" "$@"
