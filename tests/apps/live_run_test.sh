#!/bin/sh
# "ruvo run" without a log: a live measurement that lasts --for SECONDS or until SIGTERM; the
# start and stop handlers run once each and what they send is written as it goes out.
set -u
ruvo="$1"
work=$(mktemp -d)
trap '[ -n "${KEEP:-}" ] || rm -rf "$work"' EXIT
fail() { echo "FAIL: $*"; exit 1; }
p="$work/proj"

"$ruvo" new "$p" live >/dev/null &&
"$ruvo" func "$p" live mainRun --create 0 >/dev/null &&
"$ruvo" func "$p" live on_start_hello --create 50 >/dev/null &&
"$ruvo" func "$p" live on_stop_bye --create 51 >/dev/null || fail "set-up"
for what in start:0x101:0x11 stop:0x102:0x22; do
  kind=${what%%:*}; rest=${what#*:}; id=${rest%%:*}; byte=${rest#*:}
  printf 'KelnCan f;\ncom.init_can(%s, 1, &f);\nf.FData[0] = %s;\ncom.send_can_async(&f);\n' "$id" "$byte" > "$work/$kind.txt"
done
"$ruvo" func "$p" live on_start_hello --body "$work/start.txt" >/dev/null &&
"$ruvo" func "$p" live on_stop_bye --body "$work/stop.txt" >/dev/null || fail "bodies"
"$ruvo" compile "$p" live > "$work/compile.txt" 2>&1 || fail "compile: $(cat "$work/compile.txt")"

"$ruvo" run "$p" live --for 0.2 --out "$work/timed.log" 2> "$work/timed.err" || fail "timed run: $(cat "$work/timed.err")"
grep -q "measurement ended: the applets sent 2" "$work/timed.err" || fail "summary: $(cat "$work/timed.err")"
[ "$(sed 's/^([0-9.]*) //' "$work/timed.log")" = "can0 101#11
can0 102#22" ] || fail "frames: $(cat "$work/timed.log")"

# Until a signal: the start frame is readable while it runs, the stop frame follows the signal.
"$ruvo" run "$p" live > "$work/live.log" 2> "$work/live.err" &
pid=$!
n=0
until grep -q "101#11" "$work/live.log" 2>/dev/null; do
  n=$((n + 1)); [ $n -lt 500 ] || { kill -9 $pid; fail "no start frame while running"; }
  sleep 0.02
done
kill -TERM $pid
wait $pid
status=$?
[ $status -eq 143 ] || fail "exit $status after SIGTERM: $(cat "$work/live.err")"
tail -n 1 "$work/live.log" | grep -q "102#22" || fail "stop frame: $(cat "$work/live.log")"

"$ruvo" run "$p" live --for 0 2>/dev/null; [ $? -eq 2 ] || fail "--for 0 is a usage error"
"$ruvo" run "$p" live --for 1 --replay "$work/timed.log" 2>/dev/null; [ $? -eq 2 ] || fail "--for with --replay"
echo "live run: all checks passed"
