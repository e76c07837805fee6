#!/bin/sh
# The ruvo command as a user runs it: every command, help and version, usage errors, bad names,
# and compile diagnostics told as lines of the applet's functions.
set -u
ruvo="$1"
version="$2"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { printf "FAIL: %s\n" "$*"; exit 1; }
# expect CODE COMMAND...: runs it with stdout in $work/out and stderr in $work/err.
expect() {
    want=$1
    shift
    "$@" >"$work/out" 2>"$work/err"
    got=$?
    [ "$got" -eq "$want" ] || fail "exit $got, wanted $want: $* -- $(cat "$work/out" "$work/err")"
}
# refused TEXT COMMAND...: exit 1 with exactly TEXT on stderr and nothing on stdout.
refused() {
    text=$1
    shift
    expect 1 "$@"
    [ "$(cat "$work/err")" = "$text" ] || fail "stderr of $*: $(cat "$work/err") -- wanted: $text"
    [ ! -s "$work/out" ] || fail "stdout of $*: $(cat "$work/out")"
}

# ---- help and version: stdout and 0; wrong arguments: usage on stderr and 2 ----
for h in --help -h help; do
    expect 0 "$ruvo" $h
    grep -q "^  ruvo unbind PROJECT APPLET rx|tx|pretx|key|timer KEY$" "$work/out" || fail "$h lists unbind"
    grep -q "^  ruvo rm PROJECT APPLET$" "$work/out" || fail "$h lists rm"
    [ ! -s "$work/err" ] || fail "$h writes to stderr"
done
expect 0 "$ruvo" help unbind
[ "$(head -1 "$work/out")" = "usage: ruvo unbind PROJECT APPLET rx|tx|pretx|key|timer KEY" ] || fail "help unbind: $(cat "$work/out")"
[ "$(wc -l < "$work/out")" -ge 5 ] || fail "help unbind describes it: $(cat "$work/out")"
for c in new list show rm func bind unbind gen compile run demo; do
    for h in --help -h; do
        expect 0 "$ruvo" $c $h
        head -1 "$work/out" | grep -q "^usage: ruvo $c" || fail "$c $h: $(cat "$work/out")"
        [ "$(wc -l < "$work/out")" -ge 4 ] || fail "$c $h describes it: $(cat "$work/out")"
    done
done
expect 0 "$ruvo" bind "$work/none" x rx k 1 --help
[ ! -e "$work/none" ] || fail "--help does nothing else"
expect 0 "$ruvo" --version
[ "$(cat "$work/out")" = "ruvo $version" ] || fail "version: $(cat "$work/out")"
for wrong in "" "--bogus" "bogus" "help bogus" "help new list" "--version extra"; do
    expect 2 "$ruvo" $wrong
    [ ! -s "$work/out" ] || fail "'$wrong' writes usage to stdout"
    grep -q "^usage: ruvo COMMAND" "$work/err" || fail "'$wrong' gives no usage: $(cat "$work/err")"
done
for wrong in "show -x alpha" "compile --fast" "gen P A --bogus x" "list P extra" "func P A f --bogus x" "demo now"; do
    expect 2 "$ruvo" $wrong
    grep -q "^usage: ruvo ${wrong%% *}\( \|$\)" "$work/err" || fail "'$wrong' gives the command's usage: $(cat "$work/err")"
done
expect 2 "$ruvo" show "$work/proj"
grep -q "^usage: ruvo show PROJECT APPLET$" "$work/err" || fail "command usage on stderr: $(cat "$work/err")"
[ ! -s "$work/out" ] || fail "command usage error writes to stdout"

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

"$ruvo" func "$work/proj" alpha req --create 22 --params "s32 a" >/dev/null || fail "a function named like a key"
"$ruvo" bind "$work/proj" alpha rx req 0x7E0 >/dev/null || fail "bind rx"
"$ruvo" bind "$work/proj" alpha tx done 0x7E8 >/dev/null || fail "bind tx"
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

# Diagnostics point at the applet's functions: line 3 of add's body, line 2 of the timer's.
printf 's32 r = a;\nr += p;\nr = ;\nreturn r;\n' > "$work/bad.txt"
"$ruvo" func "$work/proj" alpha add --body "$work/bad.txt" >/dev/null || fail "bad body"
printf 'int t = 0;\nt == 1;\n' > "$work/warn.txt"
"$ruvo" func "$work/proj" alpha on_tick_timer --body "$work/warn.txt" >/dev/null || fail "timer body"
"$ruvo" compile "$work/proj" alpha > "$work/compile.txt" 2>"$work/compile.err"; [ $? -eq 1 ] || fail "failed compile exit code"
grep -q "^alpha:add:3: error: expected expression$" "$work/compile.txt" || fail "error at the function's line: $(cat "$work/compile.txt")"
grep -q "^alpha:on_tick_timer:2: warning: equality comparison result unused" "$work/compile.txt" || fail "warning mapped: $(cat "$work/compile.txt")"
grep -q "^alpha:on_tick_timer:2: note: " "$work/compile.txt" || fail "note mapped: $(cat "$work/compile.txt")"
grep -q "^r = ;$" "$work/compile.txt" || fail "the source line is still shown"
grep -q "^result: failure (1), [0-9]* ms$" "$work/compile.txt" || fail "failure result line"
! grep -q "singleapp.cpp\|^Output:" "$work/compile.txt" "$work/compile.err" || fail "generated file or library chatter shown: $(cat "$work/compile.txt" "$work/compile.err")"
RUVO_VERBOSE=1 "$ruvo" compile "$work/proj" alpha > "$work/compile.txt" 2>"$work/compile.err"; [ $? -eq 1 ] || fail "verbose failed compile"
grep -q "^alpha:add:3: error: expected expression$" "$work/compile.txt" || fail "verbose stdout is mapped too"
grep -q "alpha_code/singleapp.cpp:[0-9]*:[0-9]*: error: expected expression" "$work/compile.err" || fail "verbose shows the raw text: $(cat "$work/compile.err")"

# ---- unbind: a CAN or shortcut handler stays, a timer goes with its function ----
expect 0 "$ruvo" unbind "$work/proj" alpha rx req
grep -q "on_can_rx_req stays" "$work/out" || fail "unbind rx says the handler stays: $(cat "$work/out")"
expect 0 "$ruvo" unbind "$work/proj" alpha key reset
expect 0 "$ruvo" unbind "$work/proj" alpha timer tick
out=$("$ruvo" show "$work/proj" alpha)
! echo "$out" | grep -q "CAN receive    req" || fail "rx binding removed: $out"
! echo "$out" | grep -q "shortcut       reset" || fail "shortcut removed: $out"
! echo "$out" | grep -q "timer          tick" || fail "timer removed: $out"
echo "$out" | grep -q "CAN sent       done" || fail "other bindings stay: $out"
echo "$out" | grep -q "\] void on_can_rx_req(" || fail "rx handler stays: $out"
echo "$out" | grep -q "\] void on_shortcut_reset(" || fail "shortcut handler stays: $out"
! echo "$out" | grep -q "on_tick_timer" || fail "timer function removed: $out"
echo "$out" | grep -q "\] s32 req(s32 a)$" || fail "the function named like the key stays: $out"
refused "ruvo unbind: applet \"alpha\" has no rx binding \"req\"" "$ruvo" unbind "$work/proj" alpha rx req
expect 1 "$ruvo" unbind "$work/proj" alpha timer nosuch
expect 1 "$ruvo" unbind "$work/proj" nobody tx done
expect 2 "$ruvo" unbind "$work/proj" alpha sideways done
expect 2 "$ruvo" unbind "$work/proj" alpha tx
expect 0 "$ruvo" unbind "$work/proj" alpha tx done

# ---- bad names: exit 1 and the text the library logs, nothing written ----
refused 'ruvo new: invalid applet name "../evil": contains "/"' "$ruvo" new "$work/proj" ../evil
[ ! -e "$work/evil_code" ] || fail "a bad name wrote outside the project"
refused 'ruvo new: invalid applet name "": is empty' "$ruvo" new "$work/proj" ""
refused 'ruvo new: invalid applet name "a..b": contains ".."' "$ruvo" new "$work/proj" a..b
refused 'ruvo new: invalid applet name "a\x09b": contains a control character' "$ruvo" new "$work/proj" "$(printf 'a\tb')"
refused 'ruvo new: invalid applet name "a\b": contains "\"' "$ruvo" new "$work/proj" 'a\b'
refused 'ruvo show: invalid applet name "/etc": contains "/"' "$ruvo" show "$work/proj" /etc
refused 'ruvo func: invalid function name "1st": is not a C++ identifier (must start with a letter or "_")' \
    "$ruvo" func "$work/proj" alpha 1st --create 22
refused 'ruvo func: invalid function name "class": is a C++ keyword' "$ruvo" func "$work/proj" alpha class --create 22
refused 'ruvo func: invalid function name "../x": contains "/"' "$ruvo" func "$work/proj" alpha ../x --body "$work/body.txt"
refused 'ruvo bind: invalid binding key name "a-b": cannot be part of a C++ identifier (only letters, digits and "_")' \
    "$ruvo" bind "$work/proj" alpha rx a-b 1
refused 'ruvo bind: invalid binding key name "..": contains ".."' "$ruvo" bind "$work/proj" alpha timer .. 5
refused 'ruvo unbind: invalid binding key name "x y": cannot be part of a C++ identifier (only letters, digits and "_")' \
    "$ruvo" unbind "$work/proj" alpha key "x y"
refused 'ruvo compile: invalid applet name "a/../alpha": contains "/"' "$ruvo" compile "$work/proj" a/../alpha
refused 'ruvo rm: invalid applet name "..": contains ".."' "$ruvo" rm "$work/proj" ..
printf '(1.0) can0 123#00\n' > "$work/one.log"
refused 'ruvo run: invalid applet name "../alpha": contains "/"' "$ruvo" run "$work/proj" ../alpha --replay "$work/one.log"
[ "$("$ruvo" list "$work/proj")" = "alpha
beta" ] || fail "bad names created nothing"

# ---- rm: both directories, nothing outside the project ----
mkdir "$work/outside" && touch "$work/outside/keep"
"$ruvo" new "$work/proj" gamma >/dev/null || fail "new gamma"
mkdir -p "$work/proj/gamma_mp" && touch "$work/proj/gamma_mp/gamma.mp" "$work/proj/gamma_code/singleapp.cpp"
ln -s "$work/outside" "$work/proj/gamma_code/link"
expect 0 "$ruvo" rm "$work/proj" gamma
[ ! -e "$work/proj/gamma_code" ] && [ ! -e "$work/proj/gamma_mp" ] || fail "rm removes both directories"
[ -f "$work/outside/keep" ] || fail "rm followed a link inside the code directory"
refused "ruvo rm: no applet \"gamma\" in $work/proj ($work/proj/gamma_code/appletCfg.ruvo does not exist)" \
    "$ruvo" rm "$work/proj" gamma
"$ruvo" new "$work/proj" delta >/dev/null || fail "new delta"
rm -rf "$work/proj/delta_mp"
ln -s "$work/outside" "$work/proj/delta_mp"
refused "ruvo rm: refusing to remove $work/proj/delta_mp: it is a symbolic link" "$ruvo" rm "$work/proj" delta
[ -f "$work/outside/keep" ] && [ -f "$work/proj/delta_code/appletCfg.ruvo" ] || fail "a refused rm removed something"
rm "$work/proj/delta_mp"
mv "$work/proj/delta_code" "$work/outside/delta_code"
ln -s "$work/outside/delta_code" "$work/proj/delta_code"
expect 1 "$ruvo" rm "$work/proj" delta
[ -f "$work/outside/delta_code/appletCfg.ruvo" ] || fail "rm followed a linked code directory"
rm "$work/proj/delta_code"
expect 2 "$ruvo" rm "$work/proj"
[ "$("$ruvo" list "$work/proj")" = "alpha
beta" ] || fail "rm touched other applets"

"$ruvo" new "$work/proj" alpha 2>/dev/null && fail "new over an existing applet"
"$ruvo" show "$work/proj" nobody 2>/dev/null; [ $? -eq 1 ] || fail "show of a missing applet"
echo "cli: all checks passed"
