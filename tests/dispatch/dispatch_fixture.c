/* Handlers as an applet module exports them, recording what reached them. */
#include <string.h>

typedef struct {
    unsigned long long curtime;
    unsigned char canNo;
    unsigned int : 0;
    unsigned int dir : 1, rtr : 1, xtd : 1, Id : 29;
    unsigned char de : 1, fd : 1, brs : 1, esi : 1, dlc : 4;
    unsigned char byteDataLen;
    unsigned char FData[64];
} Frame;

#define MAX_CALLS 64
static char g_calls[MAX_CALLS][32];
static unsigned g_ids[MAX_CALLS];
static int g_count = 0;

static int g_hold = 0;

/* One writer (the dispatching thread); the count is published after the entry is written. */
static void record(const char* name, const Frame* f) {
    const int n = __atomic_load_n(&g_count, __ATOMIC_ACQUIRE);
    if (n < MAX_CALLS) {
        strncpy(g_calls[n], name, sizeof(g_calls[0]) - 1);
        g_ids[n] = f ? f->Id : 0;
        __atomic_store_n(&g_count, n + 1, __ATOMIC_RELEASE);
    }
}

int fixture_call_count(void) { return __atomic_load_n(&g_count, __ATOMIC_ACQUIRE); }
const char* fixture_call(int i) { return i < fixture_call_count() ? g_calls[i] : ""; }
unsigned fixture_call_id(int i) { return i < fixture_call_count() ? g_ids[i] : 0; }
void fixture_reset(void) { __atomic_store_n(&g_count, 0, __ATOMIC_RELEASE); }
/* While held, on_can_rx_slow does not return: a handler still running when its module is
   unloaded. */
void fixture_hold(int on) { __atomic_store_n(&g_hold, on, __ATOMIC_RELEASE); }

void on_can_rx_12(Frame* f) { record("on_can_rx_12", f); }
void on_can_rx_123(Frame* f) { record("on_can_rx_123", f); }
void on_can_rx_any(Frame* f) { record("on_can_rx_any", f); }
void on_can_rx_slow(Frame* f) {
    record("on_can_rx_slow", f);
    while (__atomic_load_n(&g_hold, __ATOMIC_ACQUIRE)) {
    }
}
void on_can_tx_out(Frame* f) { record("on_can_tx_out", f); }
void on_can_pretx_first(Frame* f) {
    record("on_can_pretx_first", f);
    f->FData[0] = 0x11;
}
void on_can_pretx_second(Frame* f) {
    record("on_can_pretx_second", f);
    f->FData[1] = (unsigned char)(f->FData[0] + 1); /* sees what the first handler wrote */
}
void on_start_go(void) { record("on_start_go", 0); }
void on_stop_go(void) { record("on_stop_go", 0); }
