//@ rx request 0x123
// Echoes every frame received on 0x123 as 0x124 on the same channel, data unchanged.
KelnCan echo;
com.init_can(0x124, ACAN->dlc, &echo);
echo.canNo = ACAN->canNo;
echo.byteDataLen = ACAN->byteDataLen;
for (u32 i = 0; i < ACAN->byteDataLen && i < sizeof(echo.FData); ++i) {
    echo.FData[i] = ACAN->FData[i];
}
com.send_can_async(&echo);
