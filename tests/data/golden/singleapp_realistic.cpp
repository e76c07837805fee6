#include <stdio.h>
#include "RuvoBase.h"
#include "mp_ruvo.h"
#include "applet_global_def.h"
#include "RuvoTimer.h"
#include "resource.h"
#include "database.h"
#include "commonkitstring.h"
#include "commonkit.h"
#include "cmath" 
extern "C"{
void  __declspec(dllexport) mainRun();

}
// 全局定义
static const u8 kReply[8] = {0x02, 0x7E, 0x00};
// 全局定义尾部
u32 frames = 0; //frames answered
double gain = 1.500000; 
bool verbose = false; 
PKelnCan last = NULL; //last request

extern "C"{
void  __declspec(dllexport) on_can_pretx_patch(PKelnCan ACAN);

}
extern "C"{
void  __declspec(dllexport) on_can_rx_request(PKelnCan ACAN);

}
extern "C"{
void  __declspec(dllexport) on_can_tx_sent(PKelnCan ACAN);

}
extern "C"{
void  __declspec(dllexport) on_shortcut_reset(s32 AShortcut);

}
extern "C"{
void  __declspec(dllexport) on_start_go(void );

}
extern "C"{
void  __declspec(dllexport) on_stop_go(void );

}
extern "C"{
s32  __declspec(dllexport) scale(s32 factor, double g);

}
RuvoTimer fast (10, [] {
	gain += 0.1;
});
RuvoTimer slow (1000, [] {
	scale(1, gain);
});
void init() {
	registerFunc(on_can_pretx_patch, ruvo_on_can_pre_send, 0xffffffff);
	registerFunc(on_can_rx_request, ruvo_on_can_recv, 0x7e0);
	registerFunc(on_can_tx_sent, ruvo_on_can_send, 0x7e8);
	registerFunc(on_shortcut_reset, ruvo_on_key_pressed, "Ctrl+R"); 
}
void mainRun() { try {
frames = 0;
scale(2, gain);
 } catch (...) {  } } // CODE BLOCK END
void on_can_pretx_patch(const PKelnCan ACAN) { try {
ACAN->FData[7] = 0xAA;
 } catch (...) {  } } // CODE BLOCK END
void on_can_rx_request(const PKelnCan ACAN) { try {
++frames;
last = ACAN;
 } catch (...) {  } } // CODE BLOCK END
void on_can_tx_sent(const PKelnCan ACAN) { try { 
if (verbose) { frames += 0; }
 } catch (...) {  } } // CODE BLOCK END
void on_shortcut_reset(const s32 AShortcut) { try { // 快捷键 
frames = 0;
 } catch (...) {  } } // CODE BLOCK END
void on_start_go(void) { try { // 测量启动事件
//To do something

 } catch (...) {  } } // CODE BLOCK END
void on_stop_go(void) { try { // 测量停止事件
//To do something

 } catch (...) {  } } // CODE BLOCK END
s32 scale(s32 factor, double g) { try { // 自定义函数
frames = static_cast<u32>(factor * g);
 } catch (...) { return -1; } return 0;} // CODE BLOCK END
