














void on_can_rx_speed(const PKelnCan ACAN) { try {

 } catch (...) {  } } // CODE BLOCK END
