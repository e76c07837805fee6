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
"$ruvo" new "$p" nomodule >/dev/null
"$ruvo" run "$p" nomodule --replay "$work/in.log" 2> "$work/err.txt"; [ $? -eq 1 ] || fail "no module"
grep -q "compile it first" "$work/err.txt" || fail "no module message"
echo "replay: all checks passed"
