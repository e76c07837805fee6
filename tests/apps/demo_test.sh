#!/bin/sh
# "ruvo demo" from a directory that is not its own: the responder replays, the tester reads the
# VIN of the simulated ECU over ISO-TP and is refused a session; nothing is left behind.
set -u
ruvo="$1"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "FAIL: $*"; cat "$work/out.txt"; exit 1; }
cd "$work" || exit 1
TMPDIR="$work" "$ruvo" demo > "$work/out.txt" 2>&1 || fail "exit $?"
grep -q "^4. the applet sent 3 frames:" "$work/out.txt" || fail "replay part"
grep -q "in  (1700000000.010000) can0 123 BodyStatus DoorsOpen=1 Temperature=-23 degC$" "$work/out.txt" || fail "decoded input"
grep -q "out (.*) can0 7E8 DiagReply Length=2 bytes Service=80 \"session control reply\" Parameter=3 Stamp=170$" "$work/out.txt" ||
  fail "decoded reply"
grep -q "tester: VIN WRUVO0SIMULATED01" "$work/out.txt" || fail "VIN"
grep -q "tester: the responder's system variable demo.replies holds 3" "$work/out.txt" || fail "shared variable"
grep -q "can0 7E8#037F1012CCCCCCCC" "$work/out.txt" || fail "the ECU's refusal on the bus"
grep -q "can0 321#01" "$work/out.txt" || fail "the tester's timer heartbeat"
grep -q "tester: engine speed 3000 rpm, read over XCP" "$work/out.txt" || fail "the XCP read"
grep -q "converted for the measurement device into .*responder/on_can_rx_request.cpp.* main.cpp$" "$work/out.txt" || fail "the conversion"
[ -z "$(ls -d "$work"/ruvo_demo_* 2>/dev/null)" ] || fail "the demo project was left behind"
echo "demo: all checks passed"
