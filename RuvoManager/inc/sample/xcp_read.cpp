// Connects to the XCP slave on CAN (master 0x700, slave 0x701, broadcast 0x7FF) and reads two
// bytes at 0x1000 with SHORT_UPLOAD.
uint16_t xcp_ch = 0;
XcpCanCfg can_cfg = {0};
can_cfg.clk_mhz = 24;
can_cfg.baud.prescaler = 3;
can_cfg.baud.num_seg1 = 13;
can_cfg.baud.num_seg2 = 2;
can_cfg.baud.num_sjw = 2;
XcpTransportLayerCan trans_layer = {0x7FF, 0x700, 0x701, 0};
XcpProtocolLayerCfg proto_layer = {0};
proto_layer.T1 = 500;
proto_layer.AddressGranularity = 1;
proto_layer.Retries = 1;
uint32_t xcp_hand = 0;
uint8_t cto_buf[8] = {0};
if (xcp.initialize_can(&xcp_ch, 0, can_cfg) != XCP_ERR_SUCCESS) {
    clog.error("XCP: the CAN channel did not open");
    return;
}
if (xcp.add_slave(xcp_ch, trans_layer, proto_layer, &xcp_hand) == XCP_ERR_SUCCESS &&
    xcp.connect_ff(xcp_hand, 0, cto_buf, 8) == XCP_ERR_SUCCESS &&
    xcp.short_upload_f4(xcp_hand, 2, 0, 0x1000, cto_buf, 8) == XCP_ERR_SUCCESS) {
    clog.info("XCP: 0x1000 holds %u", cto_buf[1] | cto_buf[2] << 8);
} else {
    clog.warn("XCP: no answer from the slave");
}
xcp.remove_slave(xcp_hand);
xcp.uninitialize(xcp_ch);
