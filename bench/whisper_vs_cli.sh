#!/usr/bin/env bash
# One local transcription by `tamvex transcribe-local` against whisper.cpp doing exactly the
# same work with nothing of Tamvex around it (build/bench/whisper_driver: the same model file,
# the same samples, the engine's parameters and thread count). Checks that both print the same
# text (equal text proves equal input and settings, even on a random-weight model), then prints
# the median wall time and peak memory of each and their ratio and difference.
# whisper.cpp's own whisper-cli, when given, is run too with the nearest flags it has, for
# orientation (it cannot switch suppress_blank off, and prints timestamps, so its text is not
# compared).
#
# Usage: bench/whisper_vs_cli.sh BUILD_DIR MODEL [AUDIO] [RUNS] [WHISPER_CLI]
# Targets: wall time <= 1.03 x, peak memory <= driver + 40 MB.
set -euo pipefail
build="${1:?build directory}"
model="${2:?whisper model file}"
here="$(cd "$(dirname "$0")" && pwd)"
audio="${3:-$here/../../shared/testdata/jfk.wav}"
runs="${4:-5}"
cli="${5:-}"
uptime
exec python3 - "$build" "$model" "$audio" "$runs" "$cli" <<'EOF'
import os, statistics, sys, tempfile, time

build, model, audio, runs, cli = sys.argv[1], sys.argv[2], sys.argv[3], int(sys.argv[4]), sys.argv[5]
threads = max(1, min(8, (os.cpu_count() or 1) - 2))  # the engine's own rule

def run(argv):
    """Wall seconds, peak RSS in MB and stdout of one run of argv."""
    with tempfile.TemporaryFile() as out, open(os.devnull, "wb") as null:
        start = time.perf_counter()
        pid = os.posix_spawn(argv[0], argv, os.environ,
                             file_actions=[(os.POSIX_SPAWN_DUP2, out.fileno(), 1),
                                           (os.POSIX_SPAWN_DUP2, null.fileno(), 2)])
        _, status, usage = os.wait4(pid, 0)
        wall = time.perf_counter() - start
        if os.waitstatus_to_exitcode(status) != 0:
            sys.exit(f"{argv[0]} failed with {status}")
        out.seek(0)
        return wall, usage.ru_maxrss / 1024.0, out.read().decode("utf-8", "replace").strip()

programs = {
    "tamvex": [f"{build}/src/tamvex", "transcribe-local", audio, "--model", model],
    "driver": [f"{build}/bench/whisper_driver", model, audio, str(threads)],
}
if cli:
    programs["whisper-cli"] = [cli, "-m", model, "-f", audio, "-t", str(threads), "-l", "ru", "-bs", "1",
                               "-nth", "0", "-nf", "-fa", "-np"]
results = {name: [] for name in programs}
texts = {}
for _ in range(runs):  # interleaved, so a busy moment hurts all alike
    for name, argv in programs.items():
        wall, rss, text = run(argv)
        results[name].append((wall, rss))
        texts[name] = text

def line(name):
    walls = sorted(w for w, _ in results[name])
    rss = max(r for _, r in results[name])
    return statistics.median(walls), walls[0], walls[-1], rss

print(f"model={os.path.basename(model)} audio={os.path.basename(audio)} threads={threads} runs={runs}")
for name in programs:
    med, lo, hi, rss = line(name)
    print(f"{name:12s} wall median {med:7.3f} s (range {lo:.3f}-{hi:.3f})  peak RSS {rss:7.1f} MB"
          f"  text: {texts[name][:60]!r}")
if texts["tamvex"] != texts["driver"]:
    sys.exit("DIFFERENT TEXT: the application did not give whisper.cpp the same input or settings")
ours, base = line("tamvex"), line("driver")
print(f"same text; wall ratio tamvex/driver = {ours[0] / base[0]:.3f}; "
      f"peak memory tamvex - driver = {ours[3] - base[3]:+.1f} MB")
if cli:
    print(f"wall ratio tamvex/whisper-cli = {ours[0] / line('whisper-cli')[0]:.3f}")
EOF
