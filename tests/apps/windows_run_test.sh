#!/bin/sh
# ruvo.exe as a Windows user runs it (under wine): the model commands, a compile with no
# compiler in the tool tree, and a real run: mingw builds the module from the applet's generated
# sources against the tool tree's headers and import libraries, ruvo.exe loads it, replays a log
# through its handlers and writes what they send.
set -u
wine="$1"      # the emulator
ruvo="$2"      # ruvo.exe
tree="$3"      # the build directory holding Ruvo/
cxx="$4"       # the mingw C++ compiler
work=$(mktemp -d)
trap '[ -n "${KEEP:-}" ] || rm -rf "$work"' EXIT
fail() { echo "FAIL: $*"; exit 1; }
r() { "$wine" "$ruvo" "$@"; }
p="$work/proj"

r --version | grep -q "^ruvo " || fail "version"
r new "$p" echo >/dev/null || fail new
r func "$p" echo mainRun --create 0 >/dev/null || fail main
r bind "$p" echo rx req 0x7E0 >/dev/null || fail "bind rx"
r bind "$p" echo pretx patch 0x7E8 >/dev/null || fail "bind pretx"
r bind "$p" echo timer tick 1000 >/dev/null || fail "bind timer"
r unbind "$p" echo timer tick >/dev/null || fail unbind
r func "$p" echo on_stop_m --create 51 >/dev/null || fail stop
cat > "$work/rx.txt" <<'BODY'
KelnCan reply;
com.init_can(0x7E8, 8, &reply);
reply.canNo = ACAN->canNo;
for (int i = 0; i < 8; ++i) reply.FData[i] = ACAN->FData[i];
reply.FData[1] = ACAN->FData[1] + 0x40;
com.send_can_async(&reply);
BODY
printf 'ACAN->FData[7] = 0xAA;\n' > "$work/patch.txt"
printf 'clog.info("stopped on Windows");\n' > "$work/stop.txt"
for f in on_can_rx_req:rx on_can_pretx_patch:patch on_stop_m:stop; do
    r func "$p" echo "${f%%:*}" --body "$work/${f#*:}.txt" >/dev/null || fail "body ${f%%:*}"
done
r show "$p" echo > "$work/show.txt" || fail show
grep -q "on_can_rx_req" "$work/show.txt" || fail "show lists the handler: $(cat "$work/show.txt")"
grep -q "on_tick_timer" "$work/show.txt" && fail "unbind removed the timer: $(cat "$work/show.txt")"

# No clang++.exe in this tool tree: the compile says so and fails.
r compile "$p" echo > "$work/compile.txt" 2>&1 && fail "compile without a compiler: $(cat "$work/compile.txt")"
grep -q "no module was written" "$work/compile.txt" || fail "compile message: $(cat "$work/compile.txt")"

# The module as a Windows compiler would build it.
r gen "$p" echo > "$work/gen.txt" || fail "gen: $(cat "$work/gen.txt")"
code="$p/echo_code"
cp "$tree/Ruvo/RuvoBase/RuvoBase.cpp" "$tree/Ruvo/RuvoBase/RuvoBase.h" "$code/"
inc="$tree/Ruvo/KELN_Ruvo_Include"
mkdir -p "$p/echo_mp"
"$cxx" -std=c++17 -shared -o "$p/echo_mp/echo.mp" "$code/RuvoBase.cpp" "$code/singleapp.cpp" \
    -I "$inc/HostBridge" -I "$inc/RuvoManager" -I "$inc/RuvoManager/inc" -I "$inc/CommonKit" \
    -L "$tree/Ruvo/KELN_Ruvo_Lib" -lRuvoManager -lHostBridge > "$work/cxx.txt" 2>&1 \
    || fail "mingw build of the module: $(cat "$work/cxx.txt")"

cat > "$work/in.log" <<'LOG'
(1700000000.000000) can0 7E0#0210030000000000
(1700000000.001000) can0 123#11
(1700000000.002000) can1 7E0#0222F19000000000
LOG
r run "$p" echo --replay "$work/in.log" --out "$work/out.log" 2> "$work/run.txt" || fail "run: $(cat "$work/run.txt")"
cat > "$work/expected.log" <<'LOG'
(1700000000.000000) can0 7E8#02500300000000AA
(1700000000.002000) can1 7E8#0262F190000000AA
LOG
cmp -s "$work/out.log" "$work/expected.log" || fail "output log: $(cat "$work/out.log") -- $(cat "$work/run.txt")"
grep -q "stopped on Windows" "$work/run.txt" || fail "stop handler: $(cat "$work/run.txt")"
grep -q "replayed 3 frames" "$work/run.txt" || fail "summary: $(cat "$work/run.txt")"

# The log formats convert there as here.
r convert-log "$work/out.log" "$work/out.asc" >/dev/null || fail "to ASC"
r convert-log "$work/out.asc" "$work/out.blf" >/dev/null || fail "to BLF"
r convert-log "$work/out.blf" "$work/back.log" >/dev/null || fail "back"
cmp -s "$work/back.log" "$work/expected.log" || fail "round trip: $(cat "$work/back.log")"

r rm "$p" echo >/dev/null || fail rm
[ ! -e "$code" ] || fail "rm left the code"
echo "ruvo.exe: model, compile refusal, mingw-built module replayed, logs converted"
