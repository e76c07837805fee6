














void mainRun() { try {
    xcpHandle h = 0;
    XcpCanCfg cfg;
    xcpCanCh = 2;
    s32 r = xcp.connect_ff(h, 0);
    if (r == XCP_ERR_SUCCESS) r = xcp.short_upload_f4(h, 4, 0, 0x1000, cto, clen);
    xcp.program_d0(h, 2, data);
    FILE* f = fopen("/script/Measure/speed.csv", "w");
sys_RunScript("/script/Measure/Measure_uds_func_read.cpp",NULL,0,NULL);
    sys_RunScript("/script/Measure/State_Func_idle.cpp",NULL,0,NULL);
    var.get_system_var_int32_array("Bus.ints", &varlen, ints);
    return 0;

 } catch (...) {  } } // CODE BLOCK END
