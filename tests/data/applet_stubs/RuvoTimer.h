#pragma once
class RuvoTimer {
public:
    template <typename F>
    RuvoTimer(int, F) {}
};
