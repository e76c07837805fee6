sys_Log("run script on_can_rx_speed.cpp");

void on_can_rx_speed(const PKelnCan ACAN) { try {
 } catch (...) {  } } // CODE BLOCK END
