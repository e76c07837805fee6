#!/bin/sh
# "ruvo convert" end to end: an applet with a main function and a receive handler becomes a
# package (launcher, one script per generated file) listed on stdout; a second conversion
# replaces the first; an OUTDIR inside the applet's code directory, an unknown applet and a
# failing conversion exit 1 with the reason and leave the package as it was.
set -u
ruvo="$1"
work=$(mktemp -d)
trap '[ -n "${KEEP:-}" ] || rm -rf "$work"' EXIT
fail() { echo "FAIL: $*"; exit 1; }
p="$work/proj"
pkg="$work/pkg"

"$ruvo" new "$p" App >/dev/null && "$ruvo" func "$p" App mainRun --create 0 >/dev/null &&
"$ruvo" bind "$p" App rx hb 0x321 >/dev/null || fail "set-up"
cat > "$work/body.txt" <<'BODY'
    FILE* f = fopen(PATH("logs/a.csv"), "w");
    KelnBigMsg big = make();
    big.len = 64;
    go();
BODY
"$ruvo" func "$p" App mainRun --body "$work/body.txt" >/dev/null || fail "body"

# From another directory, with a relative OUTDIR.
out=$(cd "$work" && "$ruvo" convert proj App pkg) || fail "convert: $out"
expected="$pkg/App/main.cpp
$pkg/App/main.h
$pkg/App/on_can_rx_hb.cpp
$pkg/App/on_can_rx_hb.h
$pkg/main.cpp"
[ "$out" = "$expected" ] || fail "listing: $out"
for f in $out; do [ -f "$f" ] || fail "$f not written"; done
grep -qx 'sys_RunScript("/script/App/main.cpp",NULL,0,NULL);' "$pkg/main.cpp" || fail "launcher: $(cat "$pkg/main.cpp")"
grep -q 'fopen("/script/App/a.csv", "w");' "$pkg/App/main.cpp" || fail "path rule: $(cat "$pkg/App/main.cpp")"
grep -q 'big' "$pkg/App/main.cpp" && fail "KelnBigMsg lines stayed"
grep -q '__declspec' "$pkg/App/main.h" && fail "extern block stayed"
[ -e "$p/App_code/singleapp.cpp" ] && fail "the single file was generated"

# A second conversion replaces the package's files and keeps what is not its kind.
echo stale > "$pkg/App/stale.cpp"
echo keep > "$pkg/notes.txt"
"$ruvo" convert "$p" App "$pkg" >/dev/null || fail "second convert"
[ -e "$pkg/App/stale.cpp" ] && fail "stale.cpp stayed"
[ "$(cat "$pkg/notes.txt")" = keep ] || fail "notes.txt changed"

before=$(cd "$pkg" && find . -type f | sort | xargs cat | cksum)
err=$("$ruvo" convert "$p" App "$p/App_code/inner" 2>&1 >/dev/null); rc=$?
[ $rc -eq 1 ] || fail "OUTDIR inside the code directory: exit $rc"
echo "$err" | grep -q "inside the applet's code directory" || fail "reason: $err"
[ -e "$p/App_code/inner" ] && fail "inner directory made"

err=$("$ruvo" convert "$p" Nope "$pkg" 2>&1 >/dev/null); rc=$?
[ $rc -eq 1 ] && echo "$err" | grep -q 'no applet "Nope"' || fail "unknown applet: exit $rc, $err"

# A path that is no UTF-8 cannot become a GBK device path: nothing of the package changes.
printf '    f(PATH("\377"));\n' > "$work/bad.txt"
"$ruvo" func "$p" App mainRun --body "$work/bad.txt" >/dev/null || fail "bad body"
err=$("$ruvo" convert "$p" App "$pkg" 2>&1 >/dev/null); rc=$?
[ $rc -eq 1 ] && echo "$err" | grep -q "UTF-8" || fail "bad path: exit $rc, $err"
after=$(cd "$pkg" && find . -type f | sort | xargs cat | cksum)
[ "$before" = "$after" ] || fail "the package changed on a failed conversion"
ls -a "$work" | grep -q convert- && fail "scratch directory left"
echo "ok"
