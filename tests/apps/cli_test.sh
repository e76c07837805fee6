#!/bin/sh
# The ruvo command as a user runs it: new, list, show, and its usage errors.
set -u
ruvo="$1"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "FAIL: $*"; exit 1; }

"$ruvo" new "$work/proj" alpha >/dev/null || fail "new alpha"
"$ruvo" new "$work/proj" beta >/dev/null || fail "new beta"
[ -f "$work/proj/alpha_code/appletCfg.ruvo" ] || fail "config file not written"
[ "$("$ruvo" list "$work/proj")" = "alpha
beta" ] || fail "list"
out=$("$ruvo" show "$work/proj" alpha) || fail "show"
echo "$out" | grep -q "^applet     alpha$" || fail "show prints the name: $out"
echo "$out" | grep -q "^functions (0)$" || fail "show prints functions: $out"

printf 'static int count = 0;\ncount++;\n' > "$work/body.txt"
"$ruvo" func "$work/proj" alpha mainRun --create 0 --body "$work/body.txt" >/dev/null || fail "func create"
"$ruvo" func "$work/proj" alpha add --create 22 --params "s32 a, u8 *p" >/dev/null || fail "func self-defined"
out=$("$ruvo" show "$work/proj" alpha)
echo "$out" | grep -q "^  \[0 main run\] void mainRun()$" || fail "main function shown: $out"
echo "$out" | grep -q "^      | count++;$" || fail "body shown: $out"
echo "$out" | grep -q "^  \[22 self-defined\] s32 add(s32 a, u8 p)$" || fail "parameters parsed: $out"
(cd "$work" && "$ruvo" func proj alpha mainRun --body body.txt >/dev/null) || fail "relative body file"
"$ruvo" func "$work/proj" alpha nobody --body "$work/body.txt" 2>/dev/null; [ $? -eq 1 ] || fail "body of a missing function"
"$ruvo" func "$work/proj" alpha mainRun --body 2>/dev/null; [ $? -eq 2 ] || fail "option without value"
"$ruvo" func "$work/proj" alpha f --create x 2>/dev/null; [ $? -eq 2 ] || fail "sub type must be a number"

out=$("$ruvo" gen "$work/proj" alpha) || fail "gen"
echo "$out" | grep -q "alpha_code/singleapp.cpp$" || fail "gen lists the single file: $out"
echo "$out" | grep -q "alpha_code/resource.h$" || fail "gen lists resource.h: $out"
out=$("$ruvo" gen "$work/proj" alpha --layout multi) || fail "gen multi"
echo "$out" | grep -q "alpha_code/main.cpp$" || fail "gen multi lists main.cpp: $out"
"$ruvo" gen "$work/proj" alpha --layout sideways 2>/dev/null; [ $? -eq 2 ] || fail "bad layout"

"$ruvo" bind "$work/proj" alpha rx req 0x7E0 >/dev/null || fail "bind rx"
"$ruvo" bind "$work/proj" alpha timer tick 50 >/dev/null || fail "bind timer"
"$ruvo" bind "$work/proj" alpha key reset Ctrl R >/dev/null || fail "bind key"
"$ruvo" bind "$work/proj" alpha rx bad 0xZZ 2>/dev/null; [ $? -eq 2 ] || fail "bad id"
"$ruvo" bind "$work/proj" alpha sideways k 1 2>/dev/null; [ $? -eq 2 ] || fail "bad kind"
out=$("$ruvo" show "$work/proj" alpha)
echo "$out" | grep -q "CAN receive    req  *id 0x7E0" || fail "rx binding shown: $out"
echo "$out" | grep -q "timer          tick  *every 50 ms" || fail "timer binding shown: $out"
(cd / && "$ruvo" compile "$work/proj" alpha > "$work/compile.txt" 2>/dev/null) || fail "compile: $(cat "$work/compile.txt")"
grep -q "^result: success (0), [0-9]* ms$" "$work/compile.txt" || fail "compile result line: $(cat "$work/compile.txt")"
[ -f "$work/proj/alpha_mp/alpha.mp" ] || fail "module built"
printf 'int x = ;\n' > "$work/bad.txt"
"$ruvo" func "$work/proj" alpha mainRun --body "$work/bad.txt" >/dev/null || fail "bad body"
"$ruvo" compile "$work/proj" alpha > "$work/compile.txt" 2>/dev/null; [ $? -eq 1 ] || fail "failed compile exit code"
grep -q "error: expected expression" "$work/compile.txt" || fail "compiler message shown"

"$ruvo" new "$work/proj" alpha 2>/dev/null && fail "new over an existing applet"
"$ruvo" show "$work/proj" nobody 2>/dev/null; [ $? -eq 1 ] || fail "show of a missing applet"
"$ruvo" show "$work/proj" 2>/dev/null; [ $? -eq 2 ] || fail "usage error exit code"
"$ruvo" 2>/dev/null; [ $? -eq 2 ] || fail "no command"
"$ruvo" bogus 2>/dev/null; [ $? -eq 2 ] || fail "unknown command"
"$ruvo" help | grep -q "ruvo new PROJECT APPLET" || fail "help lists commands"
echo "cli: all checks passed"
