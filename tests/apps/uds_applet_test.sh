#!/bin/sh
# An applet diagnoses an ECU played by python-can alone over "ruvo run --listen": see
# uds_applet_python_can_test.py. This script builds the applet.
set -u
ruvo="$1"
here=$(dirname "$0")
work=$(mktemp -d)
trap '[ -n "${KEEP:-}" ] || rm -rf "$work"' EXIT
fail() { echo "FAIL: $*"; exit 1; }
p="$work/proj"

"$ruvo" new "$p" diag >/dev/null &&
"$ruvo" func "$p" diag mainRun --create 0 >/dev/null &&
"$ruvo" func "$p" diag global_define --create 2 >/dev/null &&
"$ruvo" bind "$p" diag rx go 0x100 >/dev/null || fail "set-up"
cat > "$work/g.txt" <<'BODY'
static KelnBigMsg g_req, g_rsp;

// Reports on the bus what a service answered: its result, the length and the first bytes.
static void report(u32 id, s32 r, s32 r2, const KelnBigMsg* m) {
    KelnCan out;
    com.init_can(id, 8, &out);
    out.FData[0] = (u8)r;
    out.FData[1] = (u8)r2;
    out.FData[2] = (u8)m->MessageLen;
    for (int i = 0; i < 5; ++i) out.FData[3 + i] = (u8)m->MessageData[i];
    com.send_can_async(&out);
}

static void ecuRecord(KelnEcuInfo* ecu) {
    ecu->appconfig.channel = 0;
    ecu->uds.ptype = PROTOCOL_DoCAN;
    ecu->uds.protocol.docan.physical_address = 0x7E0;
    ecu->uds.protocol.docan.functional_address = 0x7DF;
    ecu->uds.protocol.docan.response_address = 0x7E8;
    ecu->uds.protocol.docan.fill = 0xCC;
    ecu->uds.p2time = 2000;
    ecu->uds.p2extend_time = 2000;
}
BODY
cat > "$work/go.txt" <<'BODY'
KelnEcuInfo ecu;
ecuRecord(&ecu);
g_req.MessageLen = 3;
g_req.MessageData[0] = 0x22; g_req.MessageData[1] = (char)0xF1; g_req.MessageData[2] = (char)0x90;
g_rsp.MessageLen = 0;
s32 r = com.send_and_recv_uds_msg(&ecu, &g_req, &g_rsp, 3000);
report(0x600, r, 0, &g_rsp);

g_req.MessageLen = 2;
g_req.MessageData[0] = 0x10; g_req.MessageData[1] = 0x03;
r = com.send_uds_sync(&ecu, &g_req);
KelnUds uds;
uds.ecuinfo = &ecu;
uds.message = &g_rsp;
g_rsp.MessageLen = 1;
g_rsp.MessageData[0] = 0x50;
s32 w = com.wait_uds_msg(&uds, 3000);
report(0x601, r, w, &g_rsp);

g_req.MessageData[0] = 0x3E; g_req.MessageData[1] = 0x00;
com.send_uds_async(&ecu, &g_req, 10, 3);
BODY
"$ruvo" func "$p" diag global_define --body "$work/g.txt" >/dev/null &&
"$ruvo" func "$p" diag on_can_rx_go --body "$work/go.txt" >/dev/null || fail "bodies"
"$ruvo" compile "$p" diag > "$work/compile.txt" 2>&1 || fail "compile: $(cat "$work/compile.txt")"
/usr/bin/python3 "$here/uds_applet_python_can_test.py" "$ruvo" "$p" diag || fail "exchange"
echo "applet diagnosis over --listen: all checks passed"
