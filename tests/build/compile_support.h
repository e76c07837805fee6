#pragma once
// Waiting for the one compile callback, which comes from the compile thread.

#include <chrono>
#include <future>
#include <memory>
#include <string>

#include "RuvoManager/ruvo_sdk.h"

namespace testing_support {

struct CompileReport {
    int result = -99;
    unsigned long long ms = 0;
    std::string applet;
    std::string text;
};

class CompileWaiter {
public:
    CompileWaiter() : promise(std::make_shared<std::promise<CompileReport>>()) {
        future = promise->get_future();
    }
    RuvoCompileCallback callback() {
        auto p = promise;
        auto calls = callCount;
        return [p, calls](compileResult r, unsigned long long ms, const char* applet, const char* text) {
            if ((*calls)++ == 0) p->set_value(CompileReport{r, ms, applet, text});
        };
    }
    // Waits up to `seconds` for the report; result -99 when none came.
    CompileReport wait(int seconds = 120) {
        if (future.wait_for(std::chrono::seconds(seconds)) != std::future_status::ready) return {};
        return future.get();
    }
    int calls() const { return *callCount; }

private:
    std::shared_ptr<std::promise<CompileReport>> promise;
    std::future<CompileReport> future;
    std::shared_ptr<int> callCount = std::make_shared<int>(0);
};

}  // namespace testing_support
