#ifndef on_can_rx_speed_H
#define on_can_rx_speed_H
extern "C"{
void  __declspec(dllexport) on_can_rx_speed(PKelnCan ACAN);

}
#endif
