#!/bin/bash
# Hold-to-talk latency through the GlobalShortcuts portal in a real KDE Plasma Wayland session:
# from the key press at the compositor (fakekey.py's stamp, taken once KWin has the keys) to
# "Recording started", and from the release to "Recording stopped" (the recorder closed its
# file). Both stamps are CLOCK_MONOTONIC, read in one run. Prints each sample and the median.
#   bench/kde_hotkey_latency.sh build/src/tamvex [SAMPLES] [KIT]
set -u
tamvex=$(realpath "$1") samples=${2:-11}
kit=${3:-$(dirname "$0")/../../shared/tools/kde-wayland}
kit=$(realpath "$kit")
if [ -z "${KDE_BENCH_INNER:-}" ]; then
  SESSION_XWAYLAND=1 KDE_BENCH_INNER=1 exec dbus-run-session -- "$kit/session.sh" "$0" "$tamvex" "$samples" "$kit"
fi
work=$(mktemp -d /tmp/tamvex-bench.XXXXXX)
log=$work/tamvex.log
export HOME=$work
for v in TAMVEX_MAIN_URL TAMVEX_STT_URL TAMVEX_OPENROUTER_URL TAMVEX_YANDEX_OAUTH_URL; do export $v=http://127.0.0.1:9; done
"$tamvex" settings set use_fn_hotkey false >/dev/null
"$tamvex" settings set onboarding_done_v2 true >/dev/null
/usr/bin/python3 -c '
import json, sys
p = sys.argv[1]; s = json.load(open(p))
s["KeyboardShortcuts_sorvelRecordAlternative"] = "{\"carbonKeyCode\":2,\"carbonModifiers\":6144}"
json.dump(s, open(p, "w"))' "$XDG_CONFIG_HOME/Tamvex/Tamvex.json"
# One second of silence: the run is dropped at once, so the next press comes 3.3 s later.
sox -n -r 16000 -c 1 "$work/silence.wav" trim 0 1
QT_MESSAGE_PATTERN='%{time boot} %{message}' QT_LOGGING_RULES='com.dovra.tamv.Tamvex.info=true' \
  "$tamvex" --audio-input "$work/silence.wav" >"$log" 2>&1 &
app=$!
trap 'kill $app 2>/dev/null; wait $app 2>/dev/null; rm -rf "$work"' EXIT
for _ in $(seq 100); do grep -q "Key source:" "$log" && break; sleep 0.1; done
grep "Key source:" "$log"
for _ in $(seq "$samples"); do
  /usr/bin/python3 "$kit/fakekey.py" --hold 0.6 29,56,32 | grep -v fake_input >>"$work/keys.log"
  sleep 3.6
done
/usr/bin/python3 - "$work/keys.log" "$log" <<'EOF'
import re, statistics, sys
keys = [l.split() for l in open(sys.argv[1])]
presses = [float(k[0]) for k in keys if k[1] == 'pressed']
releases = [float(k[0]) for k in keys if k[1] == 'released']
log = [l.strip().split(' ', 1) for l in open(sys.argv[2]) if re.match(r'^\s*\d+\.\d+ ', l)]
started = [float(t) for t, m in log if m.startswith('Recording started')]
stopped = [float(t) for t, m in log if m.startswith('Recording stopped')]
def pair(events, answers):
    out = []
    for e in events:
        later = [a for a in answers if e - 0.001 <= a <= e + 1.0]  # a lost press has none
        if later: out.append((min(later) - e) * 1000)
    return out
for name, values in (('press → "Recording started"', pair(presses, started)),
                     ('release → "Recording stopped"', pair(releases, stopped))):
    if not values:
        print(name, ': no samples'); continue
    print('%s: median %.1f ms, min %.1f, max %.1f, n=%d; samples %s' % (name, statistics.median(values),
          min(values), max(values), len(values), ' '.join('%.1f' % v for v in values)))
EOF
