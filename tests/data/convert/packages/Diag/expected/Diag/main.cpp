sys_Log("run script main.cpp");

void mainRun() { try {
    e.TA = 0x7DF;
    e.SA = 0x7E8;
    e.CH = 1;
    e.P2Timeout=50;
    slen = 3;
    int32_t ret = uds_SendRecive(&e,send,slen,rcv,&rlen);
    if(rlen>3) memcpy(Text_name,(char*)&rcv[3],rlen-3);
    if (rlen>2) {
	uint32_t copyLen = rlen-2< 8?rlen-2: 8;
	memcpy(Bus_bytes,(uint8_t*)&rcv[2],copyLen);
	Bus_bytes[copyLen] = '\0';
} else {
	Bus_bytes[0] = '\0';
}
    double speed = 0;
    memcpy(&speed,&Engine_speed,varlen);
    // sys_Log("Engine.speed is %f") stays a comment; "var.get_system_var_int32(" in a string:
    const char* s = "var.get_system_var_int32(\"Engine.rpm\",&x);";
    sys_Log("speed %f ret %d", speed, (int64_t)ret);
    return 0;
 } catch (...) {  } } // CODE BLOCK END
