#!/bin/sh
# "ruvo run --xcp-slave": an applet's start handler sends CONNECT to the slave, its receive
# handler hands the answer's first bytes on in a frame of its own; a bad slave file stops the
# run before it starts.
set -u
ruvo="$1"
slave="$2"
work=$(mktemp -d)
trap '[ -n "${KEEP:-}" ] || rm -rf "$work"' EXIT
fail() { echo "FAIL: $*"; for f in "$work"/*.txt; do echo "--- $f"; cat "$f"; done; exit 1; }
p="$work/proj"
body() { printf '%s\n' "$4" > "$work/body.in"; "$ruvo" func "$p" "$1" "$2" ${3:+--create "$3"} --body "$work/body.in" >/dev/null || fail "body $1 $2"; }

"$ruvo" new "$p" meter >/dev/null && "$ruvo" bind "$p" meter rx answer 0x701 >/dev/null || fail "set-up"
body meter mainRun 0 ''
body meter on_start_connect 50 'KelnCan f; com.init_can(0x700, 2, &f); f.FData[0] = 0xFF; f.FData[1] = 0x00; com.send_can_async(&f);'
body meter on_can_rx_answer "" 'KelnCan f; com.init_can(0x123, 3, &f); f.FData[0] = ACAN->FData[0]; f.FData[1] = ACAN->FData[1]; f.FData[2] = ACAN->FData[3]; com.send_can_async(&f);'
"$ruvo" compile "$p" meter > "$work/compile.txt" 2>&1 || fail "compile"

"$ruvo" run "$p" meter --xcp-slave "$slave" --for 0.3 --out "$work/sent.log" 2> "$work/run.txt" || fail "run"
grep -q 'XCP slave "engine" on can0: commands to 700 (broadcast 7FF), answers on 701' "$work/run.txt" || fail "slave line"
# The answer to CONNECT: positive, resources 0x15, MAX_CTO 8.
grep -q ' can0 123#FF1508$' "$work/sent.log" || fail "the applet did not get the slave's answer: $(cat "$work/sent.log")"

"$ruvo" run "$p" meter --xcp-slave "$work/none.json" --for 0.3 2> "$work/bad.txt"
[ $? -eq 1 ] || fail "a missing slave file gives 1"
grep -q "none.json: cannot open" "$work/bad.txt" || fail "the reason"
echo ok
