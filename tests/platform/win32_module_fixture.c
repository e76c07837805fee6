/* A module as an applet build makes one: an exported handler that writes into the frame. */
__declspec(dllexport) void on_can_rx_req(unsigned char* data) { data[0] = 0x50; data[1] = data[2] + 1; }
