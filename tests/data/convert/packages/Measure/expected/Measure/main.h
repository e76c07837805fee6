sys_Log("run script main.h");
#ifndef mainRun_H
#define mainRun_H
sys_RunScript("/script/Measure/main.cpp",NULL,0,NULL);
#endif
