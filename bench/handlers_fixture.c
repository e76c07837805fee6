/* Twenty CAN receive handlers, as an applet module with twenty bindings exports them. */
typedef struct { unsigned char bytes[88]; } Frame;
static volatile unsigned long long g_calls = 0;
unsigned long long fixture_calls(void) { return g_calls; }
#define HANDLER(n) void on_can_rx_h##n(Frame* f) { (void)f; ++g_calls; }
HANDLER(0) HANDLER(1) HANDLER(2) HANDLER(3) HANDLER(4) HANDLER(5) HANDLER(6) HANDLER(7) HANDLER(8)
HANDLER(9) HANDLER(10) HANDLER(11) HANDLER(12) HANDLER(13) HANDLER(14) HANDLER(15) HANDLER(16)
HANDLER(17) HANDLER(18) HANDLER(19)
