#!/bin/sh
# "ruvo run" as the user's side of a measurement: message boxes answered by --answer when no
# TTY is there, the buzzer as the terminal bell, flow progress a line per step, and the
# applet's log lines with time, level and name on stdout and in --log.
set -u
ruvo="$1"
work=$(mktemp -d)
trap '[ -n "${KEEP:-}" ] || rm -rf "$work"' EXIT
fail() { echo "FAIL: $*"; exit 1; }
p="$work/proj"

"$ruvo" new "$p" ui >/dev/null && "$ruvo" func "$p" ui mainRun --create 0 >/dev/null &&
"$ruvo" func "$p" ui on_start_ask --create 50 >/dev/null || fail "set-up"
cat > "$work/ask.txt" <<'BODY'
ButtonType btns[] = { BT_OK, BT_OK_CANCEL };
char result[16] = {0};
ButtonType chosen = com.show_procedure_box(0, "", 0, btns, 2, result, sizeof(result), "Flash", "Start flashing?");
const char* texts[] = { "Go", "Stop" };
s32 index = com.show_ruvo_box(0, "", 0, texts, 2, result, sizeof(result), "Check", "Continue?");
s32 buzz = com.set_dev_buzz(1, 2000, 100, 1000, 100, 2);
cb.notify_process("ui", "seq1", "block7", 50.0, 0);
clog.info_ex("ui", "chose %d and %d, answer %s, buzz %d", (int)chosen, index, result, buzz);
BODY
"$ruvo" func "$p" ui on_start_ask --body "$work/ask.txt" >/dev/null || fail "body"
"$ruvo" compile "$p" ui > "$work/compile.txt" 2>&1 || fail "compile: $(cat "$work/compile.txt")"

"$ruvo" run "$p" ui --for 0.1 --out "$work/sent.log" --answer cancel --log "$work/ui.log" \
  > "$work/stdout.txt" 2> "$work/stderr.txt" < /dev/null || fail "run: $(cat "$work/stderr.txt")"
grep -q "^\[box\] Flash: Start flashing?" "$work/stderr.txt" || fail "box: $(cat "$work/stderr.txt")"
grep -q "^\[box\] Check: Continue? \[Go | Stop\]" "$work/stderr.txt" || fail "applet box"
[ "$(grep -c '^answer: cancel$' "$work/stderr.txt")" -eq 2 ] || fail "answers"
grep -q "$(printf '\a')\[buzz\] device 0: 2000 Hz 100 ms, 1000 Hz 100 ms, 2 times" "$work/stderr.txt" || fail "bell"
grep -q "^progress ui seq1 block7 50.0% result 0$" "$work/stderr.txt" || fail "progress"
line='INFO ui: chose 1 and 1, answer cancel, buzz 0'
grep -Eq "^[0-9]{2}:[0-9]{2}:[0-9]{2}\.[0-9]{3} $line$" "$work/stdout.txt" || fail "log line: $(cat "$work/stdout.txt")"
grep -q "$line" "$work/ui.log" || fail "--log"
"$ruvo" run "$p" ui --for 0.1 --answer maybe 2>/dev/null; [ $? -eq 2 ] || fail "--answer maybe is a usage error"
echo "terminal ui: all checks passed"
