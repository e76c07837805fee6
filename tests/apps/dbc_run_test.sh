#!/bin/sh
# CAN databases in a measurement: "ruvo compile --dbc" regenerates the installation's message
# records, an applet sets signals through them, "ruvo run --dbc" packs them with the loaded
# database, and "ruvo decode" reads the trace back. Without the database nothing is packed. Bad
# databases and a missing channel are refused before anything changes.
# Runs in an installation of its own, since the records are written into it.
set -u
ruvo="$1"
dbc_dir="$2"
work=$(mktemp -d)
trap '[ -n "${KEEP:-}" ] || rm -rf "$work"' EXIT
fail() { echo "FAIL: $*"; exit 1; }

tree=$(dirname "$(dirname "$ruvo")")/Ruvo
inst="$work/inst"
mkdir -p "$inst/bin" "$inst/Ruvo"
cp "$ruvo" "$inst/bin/ruvo"
for d in clang_compiler clang_format RuvoBase KELN_Ruvo_Lib; do ln -s "$tree/$d" "$inst/Ruvo/$d"; done
cp -R "$tree/KELN_Ruvo_Include" "$inst/Ruvo/"
ruvo="$inst/bin/ruvo"
header="$inst/Ruvo/KELN_Ruvo_Include/RuvoManager/inc/database.h"
cp "$dbc_dir/tesla_model3_party.dbc" "$work/model3.dbc"
p="$work/proj"

"$ruvo" new "$p" das >/dev/null &&
"$ruvo" func "$p" das mainRun --create 0 >/dev/null &&
"$ruvo" bind "$p" das rx req 0x100 >/dev/null || fail "set-up"
cat > "$work/req.txt" <<'BODY'
model3_CAN1::DAS_status2 status;
status.DAS_ppOffsetDesiredRamp = 0.5;
status.DAS_status2Counter = ACAN->FData[0];
status.DAS_accSpeedLimit = 80;
if (status.send() != 0) clog.warn("not packed");
BODY
"$ruvo" func "$p" das on_can_rx_req --body "$work/req.txt" >/dev/null || fail "body"

# Refused before anything changes: no channel, a bad channel, a broken file.
cp "$header" "$work/header.before"
"$ruvo" compile "$p" das --dbc "$work/model3.dbc" > "$work/err.txt" 2>&1; rc=$?
[ $rc -eq 2 ] && grep -q "needs a channel" "$work/err.txt" || fail "no channel: $rc $(cat "$work/err.txt")"
"$ruvo" run "$p" das --dbc "$work/model3.dbc@64" > "$work/err.txt" 2>&1; rc=$?
[ $rc -eq 2 ] && grep -q "bad channel '64'" "$work/err.txt" || fail "bad channel: $rc $(cat "$work/err.txt")"
printf 'VERSION ""\nBU_: A\nBO_ 1 M: 8 A\n SG_ s : 0|8@1+ (x,0) [0|0] "" A\n' > "$work/broken.dbc"
"$ruvo" compile "$p" das --dbc "$work/model3.dbc@0" --dbc "$work/broken.dbc@1" > "$work/err.txt" 2>&1; rc=$?
[ $rc -eq 1 ] && grep -q "broken.dbc:4:" "$work/err.txt" || fail "broken file: $rc $(cat "$work/err.txt")"
cmp -s "$header" "$work/header.before" || fail "a refused database changed database.h"

"$ruvo" compile "$p" das --dbc "$work/model3.dbc@0" > "$work/compile.txt" 2>&1 || fail "compile: $(cat "$work/compile.txt")"
grep -q "^// model3_0_Begin" "$header" || fail "no section in database.h"
[ "$(head -n 3 "$header")" = "$(head -n 3 "$work/header.before")" ] || fail "the text before the sections changed"

printf '(1700000000.000000) can0 100#07\n(1700000000.010000) can0 100#0C\n' > "$work/in.log"
"$ruvo" run "$p" das --replay "$work/in.log" --dbc "$work/model3.dbc@0" --out "$work/out.log" \
  > "$work/run.txt" 2>&1 || fail "run: $(cat "$work/run.txt")"
[ "$(wc -l < "$work/out.log")" -eq 2 ] || fail "expected two frames: $(cat "$work/out.log")"
"$ruvo" decode --dbc "$work/model3.dbc" "$work/out.log" > "$work/decoded.txt" || fail "decode"
grep -q "389 DAS_status2 .*DAS_status2Counter=7 .*DAS_ppOffsetDesiredRamp=0.5 m .*DAS_accSpeedLimit=80 mph" \
  "$work/decoded.txt" || fail "first frame: $(cat "$work/decoded.txt")"
grep -q "DAS_status2Counter=12 " "$work/decoded.txt" || fail "second frame: $(cat "$work/decoded.txt")"

# The same module without the database: calculate_can_message finds no signal, nothing goes out.
"$ruvo" run "$p" das --replay "$work/in.log" --out "$work/none.log" > "$work/run.txt" 2>&1 || fail "run without"
[ ! -s "$work/none.log" ] || fail "sent without a database: $(cat "$work/none.log")"
grep -q "not packed" "$work/run.txt" || fail "no warning: $(cat "$work/run.txt")"
echo "ok"
