#!/bin/bash
# Hold-to-talk in a real KDE Plasma Wayland session with no /dev/input: the built tamvex runs
# inside the session kit, its custom shortcut Ctrl+Alt+D is bound through the GlobalShortcuts
# portal, and keys are pressed at the compositor as a keyboard would.
#   kde_session_test.sh TAMVEX KIT SPEECH xwayland|wayland
# Exits 77 ("skipped: why") when the session cannot start here.
set -u
tamvex=$1 kit=$2 speech=$3 mode=$4
skip() { echo "skipped: $*"; exit 77; }
fail() { echo "FAIL: $*"; echo "--- tamvex log"; cat "$log" 2>/dev/null; exit 1; }

if [ -z "${KDE_SESSION_INNER:-}" ]; then
  [ -x "$kit/session.sh" ] || skip "no KDE session kit at $kit"
  for tool in dbus-run-session kwin_wayland /usr/libexec/xdg-desktop-portal \
              /usr/lib/x86_64-linux-gnu/libexec/xdg-desktop-portal-kde; do
    command -v "$tool" >/dev/null || skip "$tool is not installed (scripts/install-deps.sh installs it)"
  done
  [ "$mode" = xwayland ] && export SESSION_XWAYLAND=1
  KDE_SESSION_INNER=1 dbus-run-session -- "$kit/session.sh" "$0" "$@"
  rc=$?
  # session.sh says 3 when KWin or the portal did not come up.
  [ $rc = 3 ] && skip "the KDE session did not start here (see above)"
  exit $rc
fi

# Inside the session: a fresh home (session.sh made fresh XDG folders), the custom shortcut
# Ctrl+Alt+D stored, the welcome window done. Services point at a closed port, so a finished
# recording fails at once and the dictation is back to idle a few seconds later.
work=$(mktemp -d /tmp/tamvex-kde.XXXXXX)
log=$work/tamvex.log
export HOME=$work LANG=ru_RU.UTF-8 LC_ALL=ru_RU.UTF-8
for v in TAMVEX_MAIN_URL TAMVEX_STT_URL TAMVEX_OPENROUTER_URL TAMVEX_YANDEX_OAUTH_URL; do
  export $v=http://127.0.0.1:9
done
"$tamvex" settings set use_fn_hotkey false >/dev/null || fail "settings set use_fn_hotkey"
"$tamvex" settings set onboarding_done_v2 true >/dev/null || fail "settings set onboarding_done_v2"
/usr/bin/python3 - "$XDG_CONFIG_HOME/Tamvex/Tamvex.json" <<'EOF' || fail "cannot store the shortcut"
import json, sys
path = sys.argv[1]
settings = json.load(open(path))
settings["KeyboardShortcuts_sorvelRecordAlternative"] = '{"carbonKeyCode":2,"carbonModifiers":6144}'
json.dump(settings, open(path, "w"))
EOF

# KWin's log does not name Xwayland's display, so the kit guesses :0; a display left taken by
# an earlier session moves it to another number, and a loaded machine opens it late. The X
# socket that KWin or its Xwayland holds open says which display it is.
xdisplay() {
  /usr/bin/python3 - <<'EOF'
import os, re
paths = {}
for line in open("/proc/net/unix").read().splitlines()[1:]:
    f = line.split()
    if len(f) >= 8 and re.fullmatch(r"/tmp/\.X11-unix/X\d+", f[7]):
        paths[f[6]] = f[7]
for pid in filter(str.isdigit, os.listdir("/proc")):
    try:
        if not open(f"/proc/{pid}/comm").read().startswith(("kwin_wayland", "Xwayland")):
            continue
        for fd in os.listdir(f"/proc/{pid}/fd"):
            m = re.fullmatch(r"socket:\[(\d+)\]", os.readlink(f"/proc/{pid}/fd/{fd}"))
            if m and m.group(1) in paths:
                print(":" + paths[m.group(1)].rsplit("X", 1)[1])
                raise SystemExit
    except OSError:
        pass
EOF
}
if [ "$mode" = xwayland ]; then
  d=
  for _ in $(seq 300); do d=$(xdisplay); [ -n "$d" ] && break; sleep 0.1; done
  if [ -z "$d" ]; then
    echo "--- kwin log"; tail -n 30 "${SESSION_LOGS:-/nonexistent}/kwin.log" 2>/dev/null
    fail "KWin opened no X display within 30 s"
  fi
  export DISPLAY=$d
fi

# %{time boot} is CLOCK_MONOTONIC, as fakekey.py's stamps: the latency is read from one run.
QT_MESSAGE_PATTERN='%{time boot} %{message}' QT_LOGGING_RULES='com.dovra.tamv.Tamvex.info=true' \
  "$tamvex" --audio-input "$speech" >"$log" 2>&1 &
app=$!
trap 'kill $app 2>/dev/null; wait $app 2>/dev/null; rm -rf "$work"' EXIT
# Waits up to $2 tenths of a second for a line matching $1 in the log.
await() { for _ in $(seq "${2:-100}"); do grep -q -- "$1" "$log" && return 0; sleep 0.1; done; return 1; }
press() { /usr/bin/python3 "$kit/fakekey.py" --hold "$1" 29,56,32 >>"$work/keys.log" || fail "fakekey.py failed"; }

await "Key source:" || fail "no key source was chosen within 10 s"
grep -q "Key source: GlobalShortcuts portal" "$log" || fail "the key source is not the portal"
grep -q "GlobalShortcuts portal: shortcuts bound: sorvelRecordAlternative → Ctrl+Alt+D" "$log" \
  || fail "the portal did not bind Ctrl+Alt+D"

# A 2 s hold records and stops as a hold.
press 2
await "Hold release ([0-9.]*s) → stopping" 30 || fail "a 2 s hold did not stop as a hold"
grep -q "Recording started (hold pending)" "$log" || fail "the hold did not start a recording"
await "Recording stopped:" 50 || fail "the recorder did not stop"
# The failed delivery shows its error for 3 s, and presses are lost meanwhile.
await "finishRecording failed\|Injection failed" 100 || fail "the dictation did not end"
sleep 3.3

# A tap, a second tap within 0.5 s: sticky; a third press stops it.
press 0.1
press 0.1
await "Double-tap confirmed → toggleSticky" 20 || fail "a double tap did not make the recording sticky"
stops=$(grep -c "Recording stopped:" "$log")
press 0.1
for _ in $(seq 50); do [ "$(grep -c "Recording stopped:" "$log")" -gt "$stops" ] && break; sleep 0.1; done
[ "$(grep -c "Recording stopped:" "$log")" -gt "$stops" ] || fail "the third press did not stop the sticky recording"

echo "--- key presses at the compositor (CLOCK_MONOTONIC)"; cat "$work/keys.log"
echo "--- tamvex log"; cat "$log"
kill $app; wait $app
grep -q "GlobalShortcuts portal: session closed" "$log" || fail "the portal session was not closed on quit"
echo "PASS ($mode): hold, double tap and stop through the GlobalShortcuts portal"
