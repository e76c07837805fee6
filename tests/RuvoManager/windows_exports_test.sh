#!/bin/sh
# RuvoManager.dll exports what a Windows host links against: every call declared in ruvo_sdk.h,
# the six service tables and the exported classes, and not what is left unmarked.
set -u
objdump="$1"
dll="$2"
header="$3"
fail() { echo "FAIL: $*"; exit 1; }
exports=$("$objdump" -p "$dll" | sed -n '/\[Ordinal\/Name Pointer\] Table/,/^$/p' | awk '{print $NF}')
[ -n "$exports" ] || fail "no export table in $dll"

calls=$(grep '^RUVO_API ' "$header" | sed 's/(.*//; s/.*[ *&]//')
count=0
for name in $calls; do
    echo "$exports" | grep -q "^_ZN8ruvo_sdk${#name}${name}[EB]" || fail "ruvo_sdk::$name is not exported"
    count=$((count + 1))
done
[ "$count" -ge 100 ] || fail "only $count calls read from $header"
for table in g_com g_gen g_var g_clog g_xcp g_cb; do
    echo "$exports" | grep -qx "$table" || fail "the table $table is not exported"
done
for class in RuvoManager MpRuvo RuvoFunction Parameter RuvoTimer CppCodeGenerator; do
    echo "$exports" | grep -q "^_ZN${#class}${class}" || fail "the class $class is not exported"
done
# Hidden by default: what is not marked stays inside (the compile driver's prebuilt pieces).
echo "$exports" | grep -q "preparePrebuilt" && fail "an unmarked function is exported"
echo "RuvoManager.dll exports $count ruvo_sdk calls, the six tables and the classes"
