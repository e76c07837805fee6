#pragma once
// The background tasks of send_uds_async: each sends one diagnostic message cyclically on a
// task of its own until its count is done or it is interrupted. Kept in a list, not a map:
// several tasks with one key stand side by side, new ones at the end.

#include <atomic>
#include <future>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "model/records/ruvo_basic_def.h"
#include "platform/export.h"

namespace ruvo {

class RUVO_API FutureList {
public:
    // Copies the record and the message (the caller's data need not outlive the call) and
    // starts the task. count 0: sends until interrupted; negative: sends nothing.
    void create(const keln_diagnosis_service_s* service, const KelnBigMessageData* message, int cycleMs,
                int count, const std::string& key);
    // Stops and erases every task under `key`; returns when they have ended (at most one
    // cycle plus a send in progress).
    void interrupt(const std::string& key);
    // Waits for every task in list order; a task with count 0 that nobody interrupts never ends.
    void wait();
    // interrupt("RUVO_FUTURE"), then erases the rest, waiting for them.
    void clear();
    size_t size() const;

private:
    using Flag = std::shared_ptr<std::atomic<bool>>;
    // The list itself is guarded here; the tasks never touch it.
    mutable std::mutex mutex;
    // Shared futures, so that wait can wait outside the lock while an interrupt comes in; the
    // last reference to an async task's state still waits for the task when it goes.
    using Entry = std::pair<std::string, std::pair<std::shared_future<void>, Flag>>;
    std::list<Entry> tasks;
};

}  // namespace ruvo
