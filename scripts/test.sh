#!/usr/bin/env bash
# Installs the packages, builds everything and runs the whole test suite with CTest:
# once built with AddressSanitizer and UBSan, then the release build (whose summary ends the run).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
BUILD_DIR="${TAMVEX_BUILD_DIR:-build}"
# whisper.cpp's release archive beside the checkout (development and CI machines) saves fetching it.
WHISPER_ARCHIVE="$(cd .. && pwd)/shared/deps/whisper.cpp-1.9.3.tar.gz"
if [ -f "$WHISPER_ARCHIVE" ]; then
  TAMVEX_CMAKE_ARGS="-DTAMVEX_WHISPER_SOURCE=$WHISPER_ARCHIVE ${TAMVEX_CMAKE_ARGS:-}"
fi
# No debug info and no benchmarks: the tests need neither, and both cost minutes on 2 cores.
cmake -S . -B "$BUILD_DIR" -G Ninja -DCMAKE_BUILD_TYPE=Release -DTAMVEX_WERROR=ON -DTAMVEX_BUILD_BENCH=OFF \
  ${TAMVEX_CMAKE_ARGS:-}
cmake --build "$BUILD_DIR" -j2

if [ "${TAMVEX_SKIP_SANITIZERS:-0}" != "1" ]; then
  # Line tables (-g1) are all a sanitizer's report needs; full debug info made this build slower.
  cmake -S . -B "$BUILD_DIR-asan" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG=-g1 -DTAMVEX_SANITIZE=ON \
    -DTAMVEX_BUILD_BENCH=OFF ${TAMVEX_CMAKE_ARGS:-}
  cmake --build "$BUILD_DIR-asan" -j2
  # Leaks inside Qt's and PulseAudio's own caches are not ours to fix; memory errors are.
  (cd "$BUILD_DIR-asan" && ASAN_OPTIONS=detect_leaks=0 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
    ctest --output-on-failure -j2 --timeout 600)
fi

cd "$BUILD_DIR"
ctest --output-on-failure -j2 --timeout 600
