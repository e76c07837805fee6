//@ globals
// A rolling counter sent every 100 ms while the measurement runs.
static u8 g_counter = 0;

//@ start on_start_cyclic
g_counter = 0;
clog.info("cyclic sender: 0x321 every 100 ms");

//@ timer cyclic 100
KelnCan frame;
com.init_can(0x321, 8, &frame);
frame.FData[0] = g_counter++;
frame.FData[7] = 0x5A;
com.send_can_async(&frame);
