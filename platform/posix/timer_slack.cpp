#include "platform/timer_slack.h"

#if defined(__linux__)
#include <sys/prctl.h>
#endif

namespace platform {

void preciseTimerWakeups() {
#if defined(__linux__)
    prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL);  // 1 ns: as precise as the hardware allows
#endif
}

}  // namespace platform
