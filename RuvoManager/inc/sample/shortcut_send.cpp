//@ key send_once Ctrl S
// Sends one diagnostic TesterPresent frame when Ctrl+S is pressed.
KelnCan frame;
com.init_can(0x7DF, 8, &frame);
frame.FData[0] = 0x02;
frame.FData[1] = 0x3E;
frame.FData[2] = 0x00;
com.send_can_async(&frame);
clog.info("TesterPresent sent");
