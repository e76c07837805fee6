#!/bin/sh
# "ruvo samples" and "ruvo new --from-sample" as a user runs them, on the shipped catalogue and
# on a hostile one in an installation of its own.
set -u
ruvo="$1"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { printf "FAIL: %s\n" "$*"; exit 1; }
expect() {
    want=$1
    shift
    "$@" >"$work/out" 2>"$work/err"
    got=$?
    [ "$got" -eq "$want" ] || fail "exit $got, wanted $want: $* -- $(cat "$work/out" "$work/err")"
}

# ---- the listing: processes by priority, each sample with its description ----
expect 0 "$ruvo" samples
[ "$(head -1 "$work/out")" = "CAN" ] || fail "CAN (priority 1) comes first: $(cat "$work/out")"
grep -q "^  can_echo  *Echo every frame received on 0x123" "$work/out" || fail "can_echo listed: $(cat "$work/out")"
for s in cyclic_sender shortcut_send uds_read_did sysvar_counter xcp_read; do
    grep -q "^  $s  " "$work/out" || fail "$s listed"
done
grep -q "^XCP$" "$work/out" || fail "XCP process listed"
[ ! -s "$work/err" ] || fail "samples writes to stderr: $(cat "$work/err")"
expect 2 "$ruvo" samples extra
expect 0 "$ruvo" help samples
grep -q "from-sample" "$work/out" || fail "help samples points to --from-sample"

# ---- an applet from a sample: its sections become functions and bindings, and it compiles ----
expect 0 "$ruvo" new "$work/proj" echo --from-sample can_echo
expect 0 "$ruvo" show "$work/proj" echo
grep -q "on_can_rx_request(PKelnCan ACAN)" "$work/out" || fail "handler made: $(cat "$work/out")"
grep -q "CAN receive    request  *id 0x123" "$work/out" || fail "binding made: $(cat "$work/out")"
grep -q "| com.send_can_async(&echo);" "$work/out" || fail "body set: $(cat "$work/out")"
expect 0 "$ruvo" compile "$work/proj" echo
expect 0 "$ruvo" new "$work/proj" cyclic --from-sample cyclic_sender
expect 0 "$ruvo" show "$work/proj" cyclic
grep -q "timer          cyclic  *every 100 ms" "$work/out" || fail "timer bound: $(cat "$work/out")"

# ---- refusals: nothing is created ----
expect 1 "$ruvo" new "$work/proj" none --from-sample no_such_sample
[ "$(cat "$work/err")" = 'ruvo new: no sample "no_such_sample" (ruvo samples lists them)' ] || fail "$(cat "$work/err")"
[ ! -e "$work/proj/none_code" ] || fail "an unknown sample created the applet"
expect 2 "$ruvo" new "$work/proj" x --from-sample
expect 2 "$ruvo" new "$work/proj" x --from-samples can_echo
expect 1 "$ruvo" new "$work/proj" echo --from-sample can_echo
grep -q "already exists" "$work/err" || fail "an existing applet is kept: $(cat "$work/err")"

# ---- a hostile catalogue in an installation of its own ----
inst="$work/inst"
mkdir -p "$inst/bin" "$inst/Ruvo" "$inst/RuvoManager/inc/sample"
cp "$ruvo" "$inst/bin/ruvo"
echo "secret" > "$inst/RuvoManager/inc/secret.cpp"
printf 'ok();\n' > "$inst/RuvoManager/inc/sample/good.cpp"
printf '//@ rx ../up 1\nx();\n' > "$inst/RuvoManager/inc/sample/badname.cpp"
printf '//@ loop\n' > "$inst/RuvoManager/inc/sample/badkind.cpp"
cat > "$inst/RuvoManager/inc/sample/sample.json" <<'JSON'
{"processes": [{"name": "P", "priority": "x", "samples": [
  {"name": "up", "file": "../secret.cpp", "desc": "climbs"},
  {"name": "good", "file": "good.cpp", "desc": "fine"},
  {"name": "badname", "file": "badname.cpp"},
  {"name": "badkind", "file": "badkind.cpp"},
  {"name": 5, "file": "good.cpp"}]}, 7]}
JSON
expect 0 "$inst/bin/ruvo" samples
grep -q "^  good  *fine" "$work/out" || fail "good sample listed: $(cat "$work/out")"
! grep -q "up" "$work/out" || fail "a sample outside the directory listed: $(cat "$work/out")"
expect 1 "$inst/bin/ruvo" new "$work/proj" up --from-sample up
expect 1 "$inst/bin/ruvo" new "$work/proj" b1 --from-sample badname
grep -q 'sample "badname" cannot become an applet: line 1: "../up"' "$work/err" || fail "$(cat "$work/err")"
expect 1 "$inst/bin/ruvo" new "$work/proj" b2 --from-sample badkind
grep -q 'line 1: unknown section kind "loop"' "$work/err" || fail "$(cat "$work/err")"
for a in up b1 b2; do [ ! -e "$work/proj/${a}_code" ] || fail "refused sample created $a"; done
expect 0 "$inst/bin/ruvo" new "$work/proj" g --from-sample good
echo "ok"
