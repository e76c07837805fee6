/* Handlers with overlapping names for the call order tests: every call is told to the test's
   recorder with this module's tag, and each handler then changes its record, so a test sees
   whether the next call got a fresh one (receive and send) or the same one (pre-send). */
typedef struct {
    unsigned long long curtime;
    unsigned char canNo;
    unsigned int : 0;
    unsigned int dir : 1, rtr : 1, xtd : 1, Id : 29;
    unsigned char de : 1, fd : 1, brs : 1, esi : 1, dlc : 4;
    unsigned char byteDataLen;
    unsigned char FData[64];
} Frame;

typedef void (*Recorder)(const char* tag, const char* handler, unsigned id, unsigned char first);
static Recorder g_recorder = 0;
static const char* g_tag = "";

/* One module copy per applet, each told its applet's name. */
void order_fixture_bind(Recorder recorder, const char* tag) {
    g_recorder = recorder;
    g_tag = tag;
}

static void seen(const char* name, Frame* f) {
    if (g_recorder) g_recorder(g_tag, name, f->Id, f->FData[0]);
}

#define SCRIBBLE(kind, key)                \
    void on_can_##kind##_##key(Frame* f) { \
        seen("on_can_" #kind "_" #key, f); \
        f->FData[0] = 0xEE;                \
        f->Id = 0;                         \
    }
#define REWRITE(key)                        \
    void on_can_pretx_##key(Frame* f) {     \
        seen("on_can_pretx_" #key, f);      \
        f->FData[0] = (unsigned char)(f->FData[0] + 1); \
    }

SCRIBBLE(rx, 7)
SCRIBBLE(rx, 71)
SCRIBBLE(rx, any)
SCRIBBLE(rx, late)
SCRIBBLE(tx, 7)
SCRIBBLE(tx, any)
REWRITE(7)
REWRITE(71)
REWRITE(any)
