sys_Log("run script on_can_rx_speed.h");
#ifndef on_can_rx_speed_H
#define on_can_rx_speed_H
void  __declspec(dllexport) on_can_rx_speed(PKelnCan ACAN);
#endif
