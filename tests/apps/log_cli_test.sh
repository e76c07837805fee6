#!/bin/sh
# CAN logs in every format through the command line: "ruvo run --replay" of a BLF log with
# "--out" in ASC and BLF, read back by python-can; "ruvo convert-log" and how it refuses bad
# arguments and hostile files (FILE:POSITION: reason, nothing written).
set -u
ruvo="$1"
work=$(mktemp -d)
trap '[ -n "${KEEP:-}" ] || rm -rf "$work"' EXIT
fail() { echo "FAIL: $*"; exit 1; }
p="$work/proj"

"$ruvo" new "$p" echo >/dev/null && "$ruvo" func "$p" echo mainRun --create 0 >/dev/null &&
"$ruvo" bind "$p" echo rx req 0x7E0 >/dev/null || fail "set-up"
cat > "$work/rx.txt" <<'BODY'
KelnCan reply;
com.init_can(0x7E8, 8, &reply);
reply.canNo = ACAN->canNo;
for (int i = 0; i < 8; ++i) reply.FData[i] = ACAN->FData[i];
com.send_can_async(&reply);
BODY
"$ruvo" func "$p" echo on_can_rx_req --body "$work/rx.txt" >/dev/null || fail "body"
"$ruvo" compile "$p" echo > "$work/compile.txt" 2>&1 || fail "compile: $(cat "$work/compile.txt")"

cat > "$work/in.log" <<'LOG'
(1700000000.000250) can0 7E0#0210030000000000
(1700000000.001000) can0 123#11 T
(1700000000.002000) can1 7E0#0222F19000000000
(1700000000.003000) can0 20000080#
LOG
"$ruvo" convert-log "$work/in.log" "$work/In.BLF" > "$work/convert.txt" || fail "convert-log"
grep -qx "4 frames (1 error frames) from $work/in.log to $work/In.BLF" "$work/convert.txt" || fail "summary: $(cat "$work/convert.txt")"
for out in out.asc out.blf; do
  "$ruvo" run "$p" echo --replay "$work/In.BLF" --out "$work/$out" 2> "$work/run.txt" || fail "run $out: $(cat "$work/run.txt")"
  grep -q "replayed 3 frames (1 error frames skipped)" "$work/run.txt" || fail "replay summary: $(cat "$work/run.txt")"
  /usr/bin/python3 - "$work/$out" <<'PY' || fail "python-can read-back of $out"
import sys, can
path = sys.argv[1]
reader = can.ASCReader(path, relative_timestamp=False) if path.endswith(".asc") else can.BLFReader(path)
got = [(round(m.timestamp * 1e6), m.channel, m.arbitration_id, bytes(m.data).hex()) for m in reader]
assert got == [(1700000000000250, 0, 0x7E8, "0210030000000000"), (1700000000002000, 1, 0x7E8, "0222f19000000000")], got
PY
done

# Arguments: usage errors give 2, files 1.
"$ruvo" convert-log "$work/in.log" 2> "$work/err.txt"; [ $? -eq 2 ] || fail "one argument"
grep -q "expected IN and OUT" "$work/err.txt" || fail "usage: $(cat "$work/err.txt")"
"$ruvo" convert-log "$work/in.log" "$work/out.trc" 2> "$work/err.txt"; [ $? -eq 1 ] || fail "unknown suffix"
grep -q 'no CAN log format for ".trc" (known: .asc, .blf, .log)' "$work/err.txt" || fail "suffix: $(cat "$work/err.txt")"
"$ruvo" convert-log "$work/in.log" "$work/in.log" 2> "$work/err.txt"; [ $? -eq 1 ] || fail "same file"
grep -q "is the log being converted" "$work/err.txt" || fail "same file: $(cat "$work/err.txt")"
"$ruvo" help convert-log | grep -q "ruvo convert-log IN OUT" || fail "help"

# Hostile input stops before anything is written or sent.
head -c 200 "$work/In.BLF" > "$work/cut.blf"
"$ruvo" convert-log "$work/cut.blf" "$work/cut.asc" 2> "$work/err.txt"; [ $? -eq 1 ] || fail "truncated BLF accepted"
grep -qx "$work/cut.blf:byte 144: truncated log container" "$work/err.txt" || fail "truncated: $(cat "$work/err.txt")"
[ ! -e "$work/cut.asc" ] || fail "output written for a bad log"
printf 'base hex  timestamps absolute\n0.1 1 7E0 Rx d 8 00\n' > "$work/bad.asc"
"$ruvo" run "$p" echo --replay "$work/bad.asc" --out "$work/never.log" 2> "$work/err.txt"; [ $? -eq 1 ] || fail "bad ASC replayed"
grep -qx "$work/bad.asc:2: expected 8 data bytes, found 1" "$work/err.txt" || fail "bad ASC: $(cat "$work/err.txt")"
[ ! -s "$work/never.log" ] || fail "frames sent for a bad log"
echo "ok"
