#pragma once
// An applet's timers are objects its module defines at file level, built while the module
// loads. The loader gathers them as they are built, so the manager can start them with the
// measurement and stop them before the module goes.

class RuvoTimer;

namespace ruvo {

// Called by every timer's constructor and destructor; only those built during a load on this
// thread are gathered.
void noteTimerBuilt(RuvoTimer* timer);
void noteTimerGone(RuvoTimer* timer);

}  // namespace ruvo
