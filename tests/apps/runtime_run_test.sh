#!/bin/sh
# "ruvo run" with a faulting applet beside a good one, scripted keys, a timer and main functions
# on runner threads; "ruvo exec" of a main function that faults and of one that returns.
set -u
ruvo="$1"
work=$(mktemp -d)
trap '[ -n "${KEEP:-}" ] || rm -rf "$work"' EXIT
fail() { echo "FAIL: $*"; for f in "$work"/*.txt; do echo "--- $f"; cat "$f"; done; exit 1; }
p="$work/proj"
body() { printf '%s\n' "$4" > "$work/body.in"; "$ruvo" func "$p" "$1" "$2" ${3:+--create "$3"} --body "$work/body.in" >/dev/null || fail "body $1 $2"; }
send() { echo "KelnCan f; com.init_can($1, 1, &f); f.FData[0] = $2; com.send_can_async(&f);"; }
null='volatile int* p = nullptr; *p = 1;'

"$ruvo" new "$p" crasher >/dev/null && "$ruvo" new "$p" good >/dev/null && "$ruvo" new "$p" hello >/dev/null &&
"$ruvo" bind "$p" crasher rx boom 0x100 >/dev/null &&
"$ruvo" bind "$p" good rx echo 0x100 >/dev/null &&
"$ruvo" bind "$p" good key save Ctrl R >/dev/null &&
"$ruvo" bind "$p" good key a A >/dev/null &&
"$ruvo" bind "$p" good timer beat 20 >/dev/null || fail "set-up"
body crasher mainRun 0 "$null"
body crasher on_can_rx_boom "" "$null"
body good mainRun 0 'clog.info("main started"); for (;;) {}'
body good on_can_rx_echo "" "$(send 0x200 'ACAN->FData[0]')"
body good on_shortcut_save "" "$(send 0x7AA AShortcut)"
body good on_shortcut_a "" "$(send 0x7AB AShortcut)"
body good on_beat_timer "" "$(send 0x321 1)"
body hello mainRun 0 'clog.info("hello from main");'
for a in crasher good hello; do
  "$ruvo" compile "$p" $a > "$work/compile.txt" 2>&1 || fail "compile $a"
done
printf '(1.0) can0 100#01\n(1.1) can0 100#02\n(1.2) can0 100#03\n' > "$work/in.log"

# The crasher faults on the first frame and is reported once; the good applet sees all three.
"$ruvo" run "$p" crasher good --replay "$work/in.log" --out "$work/sent.log" --keys "Ctrl R,A" 2> "$work/run1.txt"
[ $? -eq 3 ] || fail "a faulted applet gives exit 3"
[ "$(grep -c 'crasher: on_can_rx_boom: SIGSEGV' "$work/run1.txt")" -eq 1 ] || fail "one report"
[ "$(grep -c ' can0 200#0' "$work/sent.log")" -eq 3 ] || fail "the good applet answered every frame"
grep -q ' 7AA#52$' "$work/sent.log" || fail "Ctrl R reached on_shortcut_save with VK 0x52"
grep -q ' 7AB#41$' "$work/sent.log" || fail "A reached on_shortcut_a"

# Live, the timer beats and the endless main function is ended by force at the stop.
"$ruvo" run "$p" good --for 0.5 --main > "$work/run2.txt" 2>&1 || fail "live run exit $?"
grep -q "good: main function stopped by force" "$work/run2.txt" || fail "main stopped"
grep -q "main started" "$work/run2.txt" || fail "main ran"
[ "$(grep -c ' 321#01' "$work/run2.txt")" -ge 5 ] || fail "the 20 ms timer beat during 0.5 s"

# SIGINT ends the main functions by force, then the measurement.
# (Started from python: a background job of this shell would have SIGINT ignored.)
# The signal goes once main has started: a slow start (sanitizers, a loaded machine) must not
# make it land before the measurement.
/usr/bin/python3 -c 'import signal, subprocess, sys, time
with open(sys.argv[1], "w") as out:
    run = subprocess.Popen(sys.argv[2:], stdout=out, stderr=out)
    deadline = time.time() + 30
    while time.time() < deadline and "main started" not in open(sys.argv[1]).read():
        time.sleep(0.05)
    time.sleep(0.2)
    run.send_signal(signal.SIGINT)
    sys.exit(run.wait(30))' "$work/run3.txt" "$ruvo" run "$p" good --main
[ $? -eq 130 ] || fail "SIGINT gives 130"
grep -q "good: main function stopped by force" "$work/run3.txt" || fail "SIGINT stopped main"

# On a terminal, typed keys reach the shortcut handlers (Ctrl+R, then a), and the terminal
# comes back as it was.
/usr/bin/python3 -c 'import os, pty, sys, termios, time
pid, fd = pty.fork()
if pid == 0:
    os.execv(sys.argv[1], sys.argv[1:])
out = b""
deadline = time.time() + 20
while time.time() < deadline and b"keys typed here" not in out:
    try:
        out += os.read(fd, 4096)
    except OSError:
        break
os.write(fd, b"\x12a")
while True:
    try:
        chunk = os.read(fd, 4096)
    except OSError:
        break
    if not chunk:
        break
    out += chunk
os.waitpid(pid, 0)
text = out.decode(errors="replace")
sys.exit(0 if " 7AA#52" in text and " 7AB#41" in text else "keys not seen:\n" + text)' "$ruvo" run "$p" good --for 1.5 > "$work/tty.txt" 2>&1 || fail "typed keys"

"$ruvo" exec "$p" crasher > "$work/exec1.txt" 2>&1
[ $? -eq 1 ] || fail "a faulting main gives exit 1"
grep -q "crasher: mainRun: SIGSEGV" "$work/exec1.txt" || fail "exec report"
"$ruvo" exec "$p" hello > "$work/exec2.txt" 2>&1 || fail "exec hello exit $?"
grep -q "hello from main" "$work/exec2.txt" || fail "exec ran main"
"$ruvo" run "$p" good --keys "Ctrl Q W" > "$work/usage.txt" 2>&1
[ $? -eq 2 ] || fail "two keys in one stroke is a usage error"
echo "runtime run: all checks passed"
