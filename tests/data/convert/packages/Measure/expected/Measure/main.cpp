sys_Log("run script main.cpp");

void mainRun() { try {
    uint32_t h = 0;
    CanInitCfg cfg;
    xcpCanCh = 2;
    int32_t r = XCP_Connect(h, 0);
    if (r == 0) r = XCP_ShortUpload(h, 4, 0, 0x1000, cto, clen);
    XCP_Program(h, 2, data);
    FILE* f = fopen("/script/Measure/speed.csv", "w");
sys_RunScript("/script/Measure/Measure_uds_func_read.cpp",NULL,0,NULL);
    sys_RunScript("/script/Measure/State_Func_idle.cpp",NULL,0,NULL);
    memcpy( ints,Bus_ints,varlen);
    return 0;
 } catch (...) {  } } // CODE BLOCK END
