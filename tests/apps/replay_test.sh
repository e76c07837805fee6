#!/bin/sh
# A compiled applet on the simulated bus, driven by "ruvo run": the request reaches its
# receive handlers (by id and by the any-id value), the reply passes a pre-send handler that
# rewrites a byte, the sent handler sees it, start and stop run once; python-can reads the
# written log back frame for frame.
set -u
ruvo="$1"
work=$(mktemp -d)
trap '[ -n "${KEEP:-}" ] || rm -rf "$work"' EXIT
fail() { echo "FAIL: $*"; exit 1; }
p="$work/proj"

"$ruvo" new "$p" echo >/dev/null || fail new
"$ruvo" func "$p" echo mainRun --create 0 >/dev/null || fail main
"$ruvo" func "$p" echo global_define --create 2 >/dev/null || fail global
printf 'static int g_rx = 0, g_any = 0, g_tx = 0, g_start = 0;\n' > "$work/g.txt"
"$ruvo" func "$p" echo global_define --body "$work/g.txt" >/dev/null || fail global body
"$ruvo" bind "$p" echo rx req 0x7E0 >/dev/null || fail bind rx
"$ruvo" bind "$p" echo rx all 0xFFFFFFFF >/dev/null || fail bind any
"$ruvo" bind "$p" echo pretx patch 0x7E8 >/dev/null || fail bind pretx
"$ruvo" bind "$p" echo tx seen 0x7E8 >/dev/null || fail bind tx
"$ruvo" func "$p" echo on_start_m --create 50 >/dev/null || fail start
"$ruvo" func "$p" echo on_stop_m --create 51 >/dev/null || fail stop
cat > "$work/rx.txt" <<'BODY'
++g_rx;
KelnCan reply;
com.init_can(0x7E8, 8, &reply);
reply.canNo = ACAN->canNo;
for (int i = 0; i < 8; ++i) reply.FData[i] = ACAN->FData[i];
reply.FData[1] = ACAN->FData[1] + 0x40;
com.send_can_async(&reply);
BODY
printf '++g_any;\n' > "$work/all.txt"
printf 'ACAN->FData[7] = 0xAA;\n' > "$work/patch.txt"
printf '++g_tx;\n' > "$work/seen.txt"
printf '++g_start;\n' > "$work/start.txt"
printf 'clog.info("counts rx=%%d any=%%d tx=%%d start=%%d", g_rx, g_any, g_tx, g_start);\n' > "$work/stop.txt"
for f in on_can_rx_req:rx on_can_rx_all:all on_can_pretx_patch:patch on_can_tx_seen:seen on_start_m:start on_stop_m:stop; do
  "$ruvo" func "$p" echo "${f%%:*}" --body "$work/${f#*:}.txt" >/dev/null || fail "body ${f%%:*}"
done
"$ruvo" compile "$p" echo > "$work/compile.txt" 2>&1 || fail "compile: $(cat "$work/compile.txt")"

cat > "$work/in.log" <<'LOG'
(1700000000.000000) can0 7E0#0210030000000000
(1700000000.001000) can0 123#11
(1700000000.002000) can1 7E0#0222F19000000000
(1700000000.003000) can0 18DAF110##1AABBCCDDEEFF0011
LOG
"$ruvo" run "$p" echo --replay "$work/in.log" --out "$work/out.log" 2> "$work/run.txt" || fail "run: $(cat "$work/run.txt")"
cat > "$work/expected.log" <<'LOG'
(1700000000.000000) can0 7E8#02500300000000AA
(1700000000.002000) can1 7E8#0262F190000000AA
LOG
cmp -s "$work/out.log" "$work/expected.log" || fail "output log: $(cat "$work/out.log")"
grep -q "counts rx=2 any=4 tx=2 start=1" "$work/run.txt" || fail "handler counts: $(cat "$work/run.txt")"
grep -q "replayed 4 frames" "$work/run.txt" || fail "summary: $(cat "$work/run.txt")"

/usr/bin/python3 - "$work/out.log" <<'PY' || fail "python-can read-back"
import sys, can
frames = list(can.LogReader(sys.argv[1]))
assert len(frames) == 2, frames
assert [hex(f.arbitration_id) for f in frames] == ["0x7e8", "0x7e8"], frames
assert bytes(frames[0].data).hex() == "02500300000000aa", frames[0]
assert frames[1].channel == "can1" and abs(frames[1].timestamp - 1700000000.002) < 1e-6, frames[1]
PY

# Paths are the user's: relative to where the command was typed.
(cd "$work" && "$ruvo" run proj echo --replay in.log --out rel.log 2>/dev/null) || fail "relative paths"
cmp -s "$work/rel.log" "$work/expected.log" || fail "relative --out"
"$ruvo" run "$p" echo --replay "$work/missing.log" 2>/dev/null; [ $? -eq 1 ] || fail "missing log"
printf '(1.0) can0 XYZ#00\n' > "$work/bad.log"
"$ruvo" run "$p" echo --replay "$work/bad.log" 2> "$work/err.txt"; [ $? -eq 1 ] || fail "bad log"
grep -q "bad.log:1: bad id" "$work/err.txt" || fail "bad log message: $(cat "$work/err.txt")"

# A bad line anywhere stops the replay before the measurement starts: nothing is sent, no
# handler runs, an earlier --out file is left alone. The message is FILE:LINE: reason, with
# the file as typed.
printf 'keep\n' > "$work/old.log"
check_bad() {  # LINE EXPECTED-MESSAGE
  { head -n 2 "$work/in.log"; printf '%s\n' "$1"; tail -n 1 "$work/in.log"; } > "$work/bad.log"
  (cd "$work" && "$ruvo" run proj echo --replay bad.log --out old.log > stdout.txt 2> err.txt)
  [ $? -eq 1 ] || fail "accepted: $1"
  [ "$(cat "$work/err.txt")" = "bad.log:3: $2" ] || fail "message for $1: $(cat "$work/err.txt")"
  [ "$(cat "$work/old.log")" = keep ] || fail "--out touched for: $1"
  [ ! -s "$work/stdout.txt" ] || fail "output for: $1"
}
check_bad '(1700000000.002500) can50000000 123#00' 'channel "can50000000": number out of range 0..63'
check_bad '(1700000000.002500) can0 7E0#001122334455667788' 'classic frame with 9 data bytes (allowed: 0-8)'
check_bad '(1700000000.002500) can0 7E0##1001122334455667788' \
  'CAN FD frame with 9 data bytes (allowed: 0-8, 12, 16, 20, 24, 32, 48, 64)'
check_bad '(1700000000.002500) can0 FFFFFFFFFFFFFFFFFFFFFFFF#00' \
  'bad id "FFFFFFFFFFFFFFFFFFFFFFFF": expected 3 hex digits (11 bits) or 8 (29 bits)'
check_bad '(1e999) can0 7E0#00' 'bad time stamp "(1e999)": expected seconds such as (1700000000.000250)'
"$ruvo" run "$p" echo --replay "$work/in.log" --out "$work/in.log" 2> "$work/err.txt"
[ $? -eq 1 ] || fail "--out over the replayed log"
grep -q "is the log being replayed" "$work/err.txt" || fail "same file message: $(cat "$work/err.txt")"

# A failing write (disk full) ends the replay, with the measurement stopped as usual.
ln -s /dev/full "$work/full.log"
"$ruvo" run "$p" echo --replay "$work/in.log" --out "$work/full.log" 2> "$work/err.txt"
[ $? -eq 1 ] || fail "disk full accepted"
grep -q "cannot write $work/full.log: No space left on device" "$work/err.txt" || fail "disk full message: $(cat "$work/err.txt")"
grep -q "counts rx=1 " "$work/err.txt" || fail "disk full: not stopped after the first write: $(cat "$work/err.txt")"

# Frames out of time order are replayed in time order (stable: equal stamps keep file order).
cat > "$work/order.log" <<'LOG'
(1700000000.002000) can0 7E0#0203000000000000
(1700000000.001000) can0 7E0#0201000000000000
(1700000000.002000) can0 7E0#0204000000000000
LOG
"$ruvo" run "$p" echo --replay "$work/order.log" > "$work/order.out" 2> "$work/err.txt" || fail "order: $(cat "$work/err.txt")"
[ "$(cut -c32-33 "$work/order.out" | tr '\n' ' ')" = "41 43 44 " ] || fail "time order: $(cat "$work/order.out")"
grep -q "1 put in time order" "$work/err.txt" || fail "order summary: $(cat "$work/err.txt")"
"$ruvo" new "$p" nomodule >/dev/null
"$ruvo" run "$p" nomodule --replay "$work/in.log" 2> "$work/err.txt"; [ $? -eq 1 ] || fail "no module"
grep -q "compile it first" "$work/err.txt" || fail "no module message"
echo "replay: all checks passed"
