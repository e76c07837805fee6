#!/bin/sh
# An applet is the XCP master of a slave that python-can plays alone over "ruvo run --listen":
# see xcp_applet_python_can_test.py. This script builds the applet.
set -u
ruvo="$1"
here=$(dirname "$0")
work=$(mktemp -d)
trap '[ -n "${KEEP:-}" ] || rm -rf "$work"' EXIT
fail() { echo "FAIL: $*"; exit 1; }
p="$work/proj"

"$ruvo" new "$p" cal >/dev/null &&
"$ruvo" func "$p" cal mainRun --create 0 >/dev/null &&
"$ruvo" func "$p" cal global_define --create 2 >/dev/null &&
"$ruvo" bind "$p" cal rx go 0x100 >/dev/null || fail "set-up"
cat > "$work/g.txt" <<'BODY'
// Reports on the bus what a service returned and the first bytes of the slave's answer.
static void report(u32 id, s32 r, const uint8_t* answer) {
    KelnCan out;
    com.init_can(id, 8, &out);
    out.FData[0] = (u8)r;
    for (int i = 0; i < 7; ++i) out.FData[1 + i] = answer[i];
    com.send_can_async(&out);
}
BODY
cat > "$work/go.txt" <<'BODY'
uint16_t ch = 0;
XcpCanCfg can_cfg = {0};
can_cfg.clk_mhz = 24;
can_cfg.baud.prescaler = 3; can_cfg.baud.num_seg1 = 13; can_cfg.baud.num_seg2 = 2; can_cfg.baud.num_sjw = 2;
XcpTransportLayerCan trans_layer = {0};
trans_layer.BroadcastID = 0x7FF; trans_layer.MasterID = 0x700; trans_layer.SlaveID = 0x701;
XcpProtocolLayerCfg proto_layer = {0};
proto_layer.T1 = 2000; proto_layer.T7 = 100; proto_layer.AddressGranularity = 1; proto_layer.Retries = 1;
proto_layer.padding = 1; proto_layer.padding_data = 0xCC;
uint32_t xcp_hand = 0;
uint8_t cto_buf[8] = {0};
if (xcp.initialize_can(&ch, 0, can_cfg) != XCP_ERR_SUCCESS ||
    xcp.add_slave(ch, trans_layer, proto_layer, &xcp_hand) != XCP_ERR_SUCCESS) {
    report(0x6FF, 1, cto_buf);
    return;
}
report(0x600, xcp.connect_ff(xcp_hand, 0, cto_buf, 8), cto_buf);
report(0x601, xcp.get_status_fd(xcp_hand, cto_buf, 8), cto_buf);
report(0x602, xcp.short_upload_f4(xcp_hand, 4, 0, 0x1000, cto_buf, 8), cto_buf);
uint8_t value[4] = {0xDE, 0xAD, 0xBE, 0xEF};
s32 r = xcp.set_memory_transfer_address_f6(xcp_hand, 0, 0x1000, cto_buf, 8);
if (r == XCP_ERR_SUCCESS) r = xcp.download_f0(xcp_hand, 4, value, 4, cto_buf, 8);
report(0x603, r, cto_buf);
report(0x604, xcp.short_upload_f4(xcp_hand, 4, 0, 0x1000, cto_buf, 8), cto_buf);
xcp.remove_slave(xcp_hand);
xcp.uninitialize(ch);
BODY
"$ruvo" func "$p" cal global_define --body "$work/g.txt" >/dev/null &&
"$ruvo" func "$p" cal on_can_rx_go --body "$work/go.txt" >/dev/null || fail "bodies"
"$ruvo" compile "$p" cal > "$work/compile.txt" 2>&1 || fail "compile: $(cat "$work/compile.txt")"
/usr/bin/python3 "$here/xcp_applet_python_can_test.py" "$ruvo" "$p" cal || fail "exchange"
echo "applet as XCP master over --listen: all checks passed"
