#pragma once
// Timer wake-ups on time: by default a sleeping thread may be woken up to 50 us late (Linux
// timer slack) or at the next 15.6 ms tick (Windows), which timers of a few milliseconds feel.

namespace platform {

// For the calling thread (on Windows for the process, while it runs).
void preciseTimerWakeups();

}  // namespace platform
