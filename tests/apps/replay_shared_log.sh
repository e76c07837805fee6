#!/bin/sh
# Replays one of the real logs through an applet bound to every id: each frame python-can
# reads from the file reaches the handler once, and nothing fails.
set -u
ruvo="$1"; log="$2"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "FAIL: $*"; exit 1; }
p="$work/proj"
"$ruvo" new "$p" count >/dev/null && "$ruvo" func "$p" count mainRun --create 0 >/dev/null &&
"$ruvo" func "$p" count global_define --create 2 >/dev/null &&
"$ruvo" bind "$p" count rx all 0xFFFFFFFF >/dev/null &&
"$ruvo" func "$p" count on_stop_m --create 51 >/dev/null || fail "set-up"
printf 'static int g_n = 0;\n' > "$work/g.txt"
printf '++g_n;\n' > "$work/rx.txt"
printf 'clog.info("frames=%%d", g_n);\n' > "$work/stop.txt"
"$ruvo" func "$p" count global_define --body "$work/g.txt" >/dev/null &&
"$ruvo" func "$p" count on_can_rx_all --body "$work/rx.txt" >/dev/null &&
"$ruvo" func "$p" count on_stop_m --body "$work/stop.txt" >/dev/null || fail "bodies"
"$ruvo" compile "$p" count > "$work/compile.txt" 2>&1 || fail "compile: $(cat "$work/compile.txt")"
"$ruvo" run "$p" count --replay "$log" > "$work/out.txt" 2> "$work/run.txt" || fail "run: $(cat "$work/run.txt")"
expected=$(/usr/bin/python3 -c "import sys, can; print(sum(1 for _ in can.LogReader(sys.argv[1])))" "$log")
grep -q "frames=$expected\$" "$work/run.txt" || fail "expected frames=$expected: $(cat "$work/run.txt")"
[ ! -s "$work/out.txt" ] || fail "the counting applet sent frames"
echo "$(basename "$log"): $expected frames replayed"
