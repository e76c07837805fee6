#!/bin/sh
# Two applets share system variables of every type during one replay: "writer" creates them at
# the start and sets them in a receive handler, "reader" reads them in another and reports on
# the bus. --vars loads variables before the start, --vars-out writes them all at the stop;
# Chinese names go through the workstation's GBK store and come back byte for byte.
set -u
ruvo="$1"
work=$(mktemp -d)
trap '[ -n "${KEEP:-}" ] || rm -rf "$work"' EXIT
fail() { echo "FAIL: $*"; exit 1; }
p="$work/proj"

for a in writer reader; do
  "$ruvo" new "$p" $a >/dev/null && "$ruvo" func "$p" $a mainRun --create 0 >/dev/null || fail "new $a"
done
"$ruvo" func "$p" writer on_start_make --create 50 >/dev/null &&
"$ruvo" bind "$p" writer rx w 0x100 >/dev/null &&
"$ruvo" bind "$p" reader rx r 0x200 >/dev/null || fail "set-up"
cat > "$work/make.txt" <<'BODY'
var.add_system_var_int32("车辆.速度", "km/h");
var.add_system_var_uint32("车辆.里程", "");
var.add_system_var_int64("车辆.偏移", "");
var.add_system_var_uint64("车辆.计数", "");
var.add_system_var_double("车辆.温度", "");
var.add_system_var_string("车辆.名称", "");
var.add_system_var_uint8_array("车辆.字节", "");
var.add_system_var_int32_array("车辆.整数", "");
var.add_system_var_int64_array("车辆.长整数", "");
var.add_system_var_double_array("车辆.小数", "");
BODY
cat > "$work/w.txt" <<'BODY'
var.set_system_var_int32("车辆.速度", ACAN->FData[0] * 100);
var.set_system_var_uint32("车辆.里程", 4000000000u);
var.set_system_var_int64("车辆.偏移", -9000000000000000000LL);
var.set_system_var_uint64("车辆.计数", 18446744073709551000ULL);
var.set_system_var_double("车辆.温度", ACAN->FData[1] / 4.0);
var.set_system_var_string("车辆.名称", "行驶中");
const u8 bytes[3] = {ACAN->FData[0], ACAN->FData[1], 255};
var.set_system_var_uint8_array("车辆.字节", 3, bytes);
const s32 ints[2] = {-1, 2};
var.set_system_var_int32_array("车辆.整数", 2, ints);
const s64 longs[1] = {1234567890123LL};
var.set_system_var_int64_array("车辆.长整数", 1, longs);
const double reals[2] = {0.5, -2.25};
var.set_system_var_double_array("车辆.小数", 2, reals);
BODY
cat > "$work/r.txt" <<'BODY'
s32 speed = 0, limit = 0;
char name[256] = {0};
var.get_system_var_int32("车辆.速度", &speed);
var.get_system_var_int32("配置.上限", &limit);
var.get_system_var_string("车辆.名称", name);
KelnCan out;
com.init_can(0x300, 8, &out);
out.FData[0] = (u8)(speed >> 8); out.FData[1] = (u8)speed;
out.FData[2] = (u8)limit;
for (int i = 0; i < 5; ++i) out.FData[3 + i] = (u8)name[i];
com.send_can_async(&out);
BODY
"$ruvo" func "$p" writer on_start_make --body "$work/make.txt" >/dev/null &&
"$ruvo" func "$p" writer on_can_rx_w --body "$work/w.txt" >/dev/null &&
"$ruvo" func "$p" reader on_can_rx_r --body "$work/r.txt" >/dev/null || fail "bodies"
for a in writer reader; do
  "$ruvo" compile "$p" $a > "$work/compile.txt" 2>&1 || fail "compile $a: $(cat "$work/compile.txt")"
done
printf '(1.000000) can0 100#0507\n(2.000000) can0 200#00\n' > "$work/in.log"
cat > "$work/vars.json" <<'EOF2'
{"variables": [{"namespace": "配置", "name": "上限", "type": "int32", "value": 42, "min": 0, "max": 100}]}
EOF2

"$ruvo" run "$p" writer reader --replay "$work/in.log" --vars "$work/vars.json" --vars-out "$work/out.json" \
  > "$work/sent.log" 2> "$work/err.txt" || fail "run: $(cat "$work/err.txt")"
grep -q "1 variables loaded from" "$work/err.txt" || fail "load line: $(cat "$work/err.txt")"
# 500 = 0x01F4, limit 42 = 0x2A, then the first five bytes of "行驶中" in UTF-8
grep -q "300#01F42AE8A18CE9A9" "$work/sent.log" || fail "reader saw: $(cat "$work/sent.log")"

/usr/bin/python3 - "$work/out.json" <<'PY' || fail "vars-out"
import json, sys
got = {(v.get("namespace", ""), v["name"]): v for v in json.load(open(sys.argv[1], encoding="utf-8"))["variables"]}
want = {
    ("配置", "上限"): ("int32", 42), ("车辆", "速度"): ("int32", 500), ("车辆", "里程"): ("uint32", 4000000000),
    ("车辆", "偏移"): ("int64", "-9000000000000000000"), ("车辆", "计数"): ("uint64", "18446744073709551000"),
    ("车辆", "温度"): ("double", 1.75), ("车辆", "名称"): ("string", "行驶中"),
    ("车辆", "字节"): ("uint8Array", [5, 7, 255]), ("车辆", "整数"): ("int32Array", [-1, 2]),
    ("车辆", "长整数"): ("int64Array", ["1234567890123"]), ("车辆", "小数"): ("doubleArray", [0.5, -2.25]),
}
assert set(got) == set(want), sorted(got)
for key, (kind, value) in want.items():
    assert got[key]["type"] == kind and got[key]["value"] == value, (key, got[key])
# The names came back through GBK unchanged, byte for byte.
raw = open(sys.argv[1], "rb").read()
for ns, name in want:
    assert ns.encode("utf-8") in raw and name.encode("utf-8") in raw, (ns, name)
PY

# A malformed file stops everything before the start: nothing sent, nothing written.
printf '{"variables": [{"name": "x", "type": "int32", "value": 1.5}]}' > "$work/bad.json"
"$ruvo" run "$p" writer reader --replay "$work/in.log" --vars "$work/bad.json" --vars-out "$work/bad_out.json" \
  > "$work/bad_sent.log" 2> "$work/bad_err.txt"
[ $? -eq 1 ] || fail "malformed vars file: exit"
grep -q "bad.json: variables\[0\].value: not an integer" "$work/bad_err.txt" || fail "message: $(cat "$work/bad_err.txt")"
[ ! -s "$work/bad_sent.log" ] && [ ! -e "$work/bad_out.json" ] || fail "something ran"
echo "variables: all checks passed"
