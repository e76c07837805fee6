#include "dispatch/function_runner.h"

#include <cstdlib>
#include <cstring>

namespace {

// A failed allocation leaves the run without a block, its size still stored.
void* copyOf(const void* block, unsigned size) {
    if (block == nullptr || size == 0) return nullptr;
    void* copy = std::malloc(size);
    if (copy != nullptr) std::memcpy(copy, block, size);
    return copy;
}

}  // namespace

RuvoFunctionRunner::RuvoFunctionRunner(Entry f, void* block, unsigned size, Notify n)
    : func(f), arg(copyOf(block, size)), argSize(size), notify(n), thread(f, arg, "") {
    thread.setThreadNotify([this](int state) { onState(state); });
}

RuvoFunctionRunner::~RuvoFunctionRunner() {
    // A thread that still runs (removed without a stop, or one that would not die) keeps its
    // block: leaked rather than freed under it.
    if (!thread.isRunning()) std::free(arg);
}

void RuvoFunctionRunner::onState(int state) {
    status.store(state);
    if (notify == nullptr) return;
    switch (state) {
        case 0: notify(arg, 0); break;
        case 1: notify(arg, 1); break;
        case 2: notify(arg, 3); break;  // 2 is reserved for a stop by force
        default: break;
    }
}

void RuvoFunctionRunner::start() {
    if (!thread.isRunning()) thread.start();
}

void RuvoFunctionRunner::stop() {
    thread.ternimate();
    if (notify != nullptr) notify(arg, 2);  // a stop without a notify is not worth a crash
}

namespace ruvo {

RunnerTable& RunnerTable::instance() {
    // Lives until process end: runs may still report while static objects go.
    static RunnerTable* table = new RunnerTable;
    return *table;
}

RunnerTable::RunnerTable() {
    std::lock_guard<std::mutex> lock(mutex);
    runners.clear();
}

RunnerTable::~RunnerTable() {
    std::lock_guard<std::mutex> lock(mutex);
    runners.clear();
}

void RunnerTable::enter(const std::string& name, RuvoFunctionRunner::Entry func, void* arg, unsigned size,
                        RuvoFunctionRunner::Notify notify) {
    std::lock_guard<std::mutex> lock(mutex);
    if (runners.count(name) == 0) runners[name] = std::make_shared<RuvoFunctionRunner>(func, arg, size, notify);
}

void RunnerTable::start(const std::string& name) {
    std::lock_guard<std::mutex> lock(mutex);
    const auto it = runners.find(name);
    if (it != runners.end() && it->second) it->second->start();
}

void RunnerTable::stop(const std::string& name) {
    std::shared_ptr<RuvoFunctionRunner> runner;
    {
        std::lock_guard<std::mutex> lock(mutex);
        const auto it = runners.find(name);
        if (it == runners.end()) return;
        runner = it->second;
        runners.erase(it);
    }
    if (runner) runner->stop();
}

void RunnerTable::remove(const std::string& name) {
    std::shared_ptr<RuvoFunctionRunner> runner;
    {
        std::lock_guard<std::mutex> lock(mutex);
        runner = runners[name];
        runners.erase(name);
    }
    // `runner` goes here; a thread still running is the caller's to have stopped.
}

int RunnerTable::status(const std::string& name) {
    std::lock_guard<std::mutex> lock(mutex);
    const std::shared_ptr<RuvoFunctionRunner>& runner = runners[name];
    return runner ? runner->getStatus() : -1;
}

}  // namespace ruvo
