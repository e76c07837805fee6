#pragma once
// An applet's main function run on a thread of its own under the applet's name, and the
// process-wide table of such runs.

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "host/commonkit/WinThread.h"
#include "platform/export.h"

class RUVO_API RuvoFunctionRunner {
public:
    using Entry = void (*)(void*);
    using Notify = void (*)(void* arg, int state);

    // Takes a private copy of `size` bytes at `arg`; the thread gets the copy (or null).
    RuvoFunctionRunner(Entry func, void* arg, unsigned size, Notify notify);
    ~RuvoFunctionRunner();
    RuvoFunctionRunner(const RuvoFunctionRunner&) = delete;
    RuvoFunctionRunner& operator=(const RuvoFunctionRunner&) = delete;

    // Starts the thread unless it runs.
    void start();
    // Ends the thread by force, then notify(arg, 2).
    void stop();
    int getStatus() const { return status.load(); }

private:
    void onState(int state);

    Entry func;
    void* arg;
    unsigned argSize;
    Notify notify;
    std::atomic<int> status{-1};
    commonkit::WinThread thread;
};

namespace ruvo {

// One run per applet name. The mutex guards the map only: it is never held while a thread is
// ended or a runner destroyed, so a notify may call back into the table.
class RUVO_API RunnerTable {
public:
    static RunnerTable& instance();

    // Enters a runner for `name` unless an entry (even an empty one) is there.
    void enter(const std::string& name, RuvoFunctionRunner::Entry func, void* arg, unsigned size,
               RuvoFunctionRunner::Notify notify);
    void start(const std::string& name);
    void stop(const std::string& name);
    void remove(const std::string& name);
    // -1 for an unknown name, which then keeps an empty entry (and blocks a later start).
    int status(const std::string& name);

private:
    RunnerTable();
    ~RunnerTable();

    std::mutex mutex;
    std::map<std::string, std::shared_ptr<RuvoFunctionRunner>> runners;
};

}  // namespace ruvo
