#!/usr/bin/env bash
# Compares one local transcription by Tamvex with whisper.cpp's own whisper-cli doing the same
# work: same file, model, thread count and decoding parameters. Prints the ratio of their wall
# times (target: <= 1.05).
# Usage: bench/whisper_vs_cli.sh BUILD_DIR WHISPER_CLI [MODEL] [AUDIO] [RUNS]
set -euo pipefail
build="${1:?build directory with whisper_bench}"
cli="${2:?path to whisper-cli}"
here="$(cd "$(dirname "$0")" && pwd)"
model="${3:-$here/../../shared/testdata/for-tests-ggml-tiny.bin}"
audio="${4:-$here/../../shared/testdata/jfk.wav}"
runs="${5:-3}"

# Ours first: the benchmark reports the thread count the engine chose, which whisper-cli is then given.
csv=$(TAMVEX_BENCH_MODEL="$model" TAMVEX_BENCH_AUDIO="$audio" \
  "$build/bench/whisper_bench" --benchmark_filter=BM_LocalTranscribe --benchmark_format=csv 2>/dev/null)
read -r ours_ms threads < <(awk -F, '
  /^name,/ { for (i = 1; i <= NF; i++) { gsub(/"/, "", $i); column[$i] = i } }
  /BM_LocalTranscribe/ { printf "%d %d\n", $column["real_time"], $column["threads"] }' <<<"$csv")
if [[ -z "${threads:-}" || "$threads" -lt 1 ]]; then
  echo "whisper_bench gave no result (is the build made with whisper.cpp?)" >&2
  exit 1
fi

# The engine's decoding, flag for flag: greedy (beam size 1) keeping the best of 5, Russian,
# no language detection, no-speech threshold 0, timestamps computed (no -nt), the context of
# earlier text not used (whisper-cli's default, as the engine's), GPU and flash attention on.
# Only printing differs, and goes to /dev/null. whisper-cli has no switch for suppress_blank,
# which the engine turns off; it changes which token is picked, not the work per token.
start=$(date +%s%N)
for _ in $(seq "$runs"); do
  "$cli" -m "$model" -f "$audio" -t "$threads" -p 1 -l ru -bs 1 -bo 5 -nth 0 -fa -np >/dev/null 2>&1
done
cli_ms=$(( ($(date +%s%N) - start) / 1000000 / runs ))

echo "threads=$threads runs=$runs whisper-cli=${cli_ms} ms tamvex=${ours_ms} ms"
awk -v a="$ours_ms" -v b="$cli_ms" 'BEGIN { printf "ratio tamvex/whisper-cli = %.3f\n", a / b }'
