// Reads the VIN (data identifier F190) of the ECU at 0x7E0/0x7E8 and logs it.
KelnEcuInfo ecu;
ecu.appconfig.channel = 0;
ecu.uds.ptype = PROTOCOL_DoCAN;
ecu.uds.protocol.docan.physical_address = 0x7E0;
ecu.uds.protocol.docan.functional_address = 0x7DF;
ecu.uds.protocol.docan.response_address = 0x7E8;
ecu.uds.protocol.docan.fill = 0xCC;
ecu.uds.p2time = 500;
ecu.uds.p2extend_time = 5000;
static KelnBigMsg request, answer;
request.MessageLen = 3;
request.MessageData[0] = 0x22;
request.MessageData[1] = (char)0xF1;
request.MessageData[2] = (char)0x90;
if (com.send_and_recv_uds_msg(&ecu, &request, &answer, 3000) == 0 && answer.MessageLen > 3) {
    clog.info("VIN %.*s", (int)answer.MessageLen - 3, answer.MessageData + 3);
} else {
    clog.warn("no answer to ReadDataByIdentifier F190");
}
