#!/usr/bin/env bash
# Compares one local transcription by Tamvex with whisper.cpp's own whisper-cli on the same
# file, model and thread count, and prints the ratio of their wall times (target: <= 1.05).
# Usage: bench/whisper_vs_cli.sh BUILD_DIR WHISPER_CLI [MODEL] [AUDIO] [RUNS]
set -euo pipefail
build="${1:?build directory with whisper_bench}"
cli="${2:?path to whisper-cli}"
here="$(cd "$(dirname "$0")" && pwd)"
model="${3:-$here/../../shared/testdata/for-tests-ggml-tiny.bin}"
audio="${4:-$here/../../shared/testdata/jfk.wav}"
runs="${5:-3}"
# The same rule as the engine: two processors left free, between 1 and 8 threads.
threads=$(( $(nproc) - 2 )); (( threads < 1 )) && threads=1; (( threads > 8 )) && threads=8

start=$(date +%s%N)
for _ in $(seq "$runs"); do
  # Greedy, Russian, no speech threshold, GPU and flash attention as the engine sets them.
  "$cli" -m "$model" -f "$audio" -t "$threads" -l ru -bs 1 -nth 0 -nt -np -fa >/dev/null 2>&1
done
cli_ms=$(( ($(date +%s%N) - start) / 1000000 / runs ))

ours_ms=$(TAMVEX_BENCH_MODEL="$model" TAMVEX_BENCH_AUDIO="$audio" \
  "$build/bench/whisper_bench" --benchmark_filter=BM_LocalTranscribe --benchmark_format=csv 2>/dev/null |
  awk -F, '/BM_LocalTranscribe/ { printf "%d", $3 }')

echo "threads=$threads runs=$runs whisper-cli=${cli_ms} ms tamvex=${ours_ms} ms"
awk -v a="$ours_ms" -v b="$cli_ms" 'BEGIN { printf "ratio tamvex/whisper-cli = %.3f\n", a / b }'
