#!/bin/sh
# Wall time and peak memory of `tamvex transcribe-local` on Parakeet TDT 0.6B v3 models of the
# real layout (random weights, written once into /tmp by ../shared/tools/make_random_parakeet.py,
# never into the checkout), q4_0 and q8_0, on jfk.wav: load + read + recognise, one process a run.
#
#   bench/parakeet_cli.sh [BUILD_DIR] [RUNS]
#
# Prints each run and the median with the spread (min-max) per model. Timings on a shared
# machine mean something only while nothing else runs: the script prints `uptime` first.
set -eu
build=${1:-build}
runs=${2:-5}
here=$(cd "$(dirname "$0")/.." && pwd)
shared="$here/../shared"
audio="$shared/testdata/jfk.wav"
tamvex="$build/src/tamvex"
[ -x "$tamvex" ] || tamvex="$build/tamvex"
[ -x "$tamvex" ] || { echo "no tamvex binary under $build" >&2; exit 1; }
command -v /usr/bin/time >/dev/null || { echo "needs /usr/bin/time (apt-get install time)" >&2; exit 1; }

stats=$(mktemp)
trap 'rm -f "$stats"' EXIT
echo "uptime: $(uptime)"
echo "threads: processors $(nproc), the engine's rule gives max(1, processors - 2)"
for type in q4_0 q8_0; do
  model="/tmp/tamvex-bench-parakeet-tdt-0.6b-v3-$type-random.bin"
  [ -s "$model" ] || python3 "$shared/tools/make_random_parakeet.py" --type "$type" --seed 1 -o "$model" >/dev/null
  # One warm-up run so that every timed run reads the model from the page cache.
  "$tamvex" transcribe-local "$audio" --model "$model" --no-vad >/dev/null 2>&1
  walls=""
  rsss=""
  i=0
  while [ "$i" -lt "$runs" ]; do
    /usr/bin/time -o "$stats" -f '%e %M' "$tamvex" transcribe-local "$audio" --model "$model" --no-vad >/dev/null 2>&1
    out=$(tail -n 1 "$stats")
    wall=${out% *}
    rss=${out#* }
    echo "$type run $((i + 1)): ${wall} s, peak RSS $((rss / 1024)) MiB"
    walls="$walls $wall"
    rsss="$rsss $rss"
    i=$((i + 1))
  done
  echo "$walls" | tr ' ' '\n' | sed '/^$/d' | sort -n | awk -v t="$type" '{a[NR]=$1} END {
    m = (NR % 2) ? a[(NR + 1) / 2] : (a[NR / 2] + a[NR / 2 + 1]) / 2
    printf "%s wall: median %.2f s, spread %.2f-%.2f s (%d runs)\n", t, m, a[1], a[NR], NR }'
  echo "$rsss" | tr ' ' '\n' | sed '/^$/d' | sort -n | awk -v t="$type" '{a[NR]=$1} END {
    m = (NR % 2) ? a[(NR + 1) / 2] : (a[NR / 2] + a[NR / 2 + 1]) / 2
    printf "%s peak RSS: median %d MiB, spread %d-%d MiB\n", t, m / 1024, a[1] / 1024, a[NR] / 1024 }'
done
