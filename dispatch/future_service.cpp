#include "dispatch/future_service.h"

#include <chrono>
#include <algorithm>
#include <cstring>
#include <iostream>
#include <thread>
#include <vector>

#include "host/uds/uds_host.h"
#include "model/diagnosis_record.h"

namespace ruvo {

namespace {

// The task's own copy: the applet's records may be gone when it runs.
struct Task {
    keln_diagnosis_service_s service;
    std::vector<char> message;
    int cycleMs;
    int count;
    std::shared_ptr<std::atomic<bool>> flag;

    // n sends; false as soon as the flag says stop. A disabled cycle holds the task, polling
    // the flag every millisecond; the sleep between sends is not cut short.
    bool sendCycle(int n) {
        for (int i = 0; i < n; ++i) {
            if (!flag->load()) return false;
            while (!uds::GetCycleTaskEnable(ruvo::hostDoCan(&service.uds.protocol.docan))) {
                if (!flag->load()) return false;
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
            BigMessageData big(message.data(), static_cast<uint32_t>(message.size()));
            uds::SendUDSMessage(reinterpret_cast<diagnosis::diagnosis_service_s*>(&service), &big);
            std::this_thread::sleep_for(std::chrono::milliseconds(cycleMs > 0 ? cycleMs : 0));
        }
        return true;
    }

    void run() {
        try {
            if (count == 0) {
                while (sendCycle(1)) {
                }
            } else {
                sendCycle(count);
            }
        } catch (const std::exception& e) {
            std::cerr << "Exception caught in async task: " << e.what() << std::endl;
        }
    }
};

}  // namespace

void FutureList::create(const keln_diagnosis_service_s* service, const KelnBigMessageData* message,
                        int cycleMs, int count, const std::string& key) {
    auto flag = std::make_shared<std::atomic<bool>>(true);
    auto task = std::make_shared<Task>();
    std::memset(static_cast<void*>(&task->service), 0, sizeof(task->service));
    if (service != nullptr) std::memcpy(static_cast<void*>(&task->service), service, sizeof(*service));
    if (message != nullptr) {
        // Never more than the record holds, whatever its length field says.
        const size_t len = std::min<size_t>(message->MessageLen, sizeof(message->MessageData));
        task->message.assign(message->MessageData, message->MessageData + len);
    }
    task->cycleMs = cycleMs;
    task->count = count;
    task->flag = flag;
    std::shared_future<void> future = std::async(std::launch::async, [task] { task->run(); }).share();
    std::lock_guard<std::mutex> lock(mutex);
    tasks.emplace_back(key, std::make_pair(std::move(future), std::move(flag)));
}

void FutureList::interrupt(const std::string& key) {
    std::list<Entry> ending;
    {
        std::lock_guard<std::mutex> lock(mutex);
        for (auto it = tasks.begin(); it != tasks.end();) {
            if (it->first == key && it->second.second) {
                it->second.second->store(false);
                ending.splice(ending.end(), tasks, it++);
            } else {
                ++it;
            }
        }
    }
    // Destroying an async future waits for its task; done outside the lock.
    ending.clear();
}

void FutureList::wait() {
    std::vector<std::shared_future<void>> waiting;
    {
        std::lock_guard<std::mutex> lock(mutex);
        for (const auto& entry : tasks) waiting.push_back(entry.second.first);
    }
    for (const auto& future : waiting) {
        if (future.valid()) future.wait();
    }
}

void FutureList::clear() {
    interrupt("RUVO_FUTURE");
    std::list<Entry> rest;
    {
        std::lock_guard<std::mutex> lock(mutex);
        rest.swap(tasks);
    }
    rest.clear();
}

size_t FutureList::size() const {
    std::lock_guard<std::mutex> lock(mutex);
    return tasks.size();
}

}  // namespace ruvo
