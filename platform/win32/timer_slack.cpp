#include "platform/timer_slack.h"

#include <windows.h>
#include <timeapi.h>

namespace platform {

void preciseTimerWakeups() {
    // 1 ms system timer resolution; asked once, kept for the life of the process.
    static const bool asked = timeBeginPeriod(1) == TIMERR_NOERROR;
    (void)asked;
}

}  // namespace platform
