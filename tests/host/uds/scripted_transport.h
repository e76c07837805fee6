#pragma once
// A diagnostic peer played from a script, on a clock the test owns: each send releases the next
// list of replies, each reply arrives a given time after the previous one, and a wait with
// nothing left to arrive returns Idle at once with the clock moved by the whole time-out.

#include <chrono>
#include <cstdint>
#include <deque>
#include <memory>
#include <utility>
#include <vector>

#include "host/isotp/message_transport.h"
#include "host/uds/uds_client.h"

namespace udstest {

using std::chrono::milliseconds;
using Bytes = std::vector<uint8_t>;

struct FakeClock {
    std::chrono::steady_clock::time_point now{};
    hostuds::Clock fn() {
        return [this] { return now; };
    }
    long long elapsedMs() const {
        return std::chrono::duration_cast<milliseconds>(now.time_since_epoch()).count();
    }
};

struct Reply {
    milliseconds after;
    Bytes bytes;
    hostbridge::NResult result = hostbridge::NResult::Ok;
};

class ScriptedTransport : public hostbridge::MessageTransport {
public:
    explicit ScriptedTransport(FakeClock& clock) : clock_(clock) {}

    // The replies the next send releases, in order.
    void script(std::vector<Reply> replies) { script_.push_back(std::move(replies)); }
    // Replies already waiting before any send (left over from earlier requests).
    void queue(Reply reply) { inbox_.push_back(std::move(reply)); }

    hostbridge::NResult send(const Bytes& message, bool functional) override {
        sent.emplace_back(message, functional);
        if (sendResult != hostbridge::NResult::Ok) return sendResult;
        if (!script_.empty()) {
            for (auto& reply : script_.front()) inbox_.push_back(std::move(reply));
            script_.pop_front();
        }
        return hostbridge::NResult::Ok;
    }

    hostbridge::NResult receive(Bytes& message, milliseconds timeout) override {
        ++receives;
        if (inbox_.empty()) {
            clock_.now += timeout;
            return hostbridge::NResult::Idle;
        }
        Reply& next = inbox_.front();
        if (next.after > timeout) {
            next.after -= timeout;
            clock_.now += timeout;
            return hostbridge::NResult::Idle;
        }
        clock_.now += next.after;
        message = next.bytes;
        hostbridge::NResult result = next.result;
        inbox_.pop_front();
        return result;
    }

    std::size_t waiting() const { return inbox_.size(); }

    std::vector<std::pair<Bytes, bool>> sent;
    hostbridge::NResult sendResult = hostbridge::NResult::Ok;
    int receives = 0;

private:
    FakeClock& clock_;
    std::deque<std::vector<Reply>> script_;
    std::deque<Reply> inbox_;
};

// What a factory hands out: a transport of its own that plays the test's script.
class ProxyTransport : public hostbridge::MessageTransport {
public:
    explicit ProxyTransport(hostbridge::MessageTransport& target) : target_(target) {}
    hostbridge::NResult send(const Bytes& message, bool functional) override {
        return target_.send(message, functional);
    }
    hostbridge::NResult receive(Bytes& message, milliseconds timeout) override {
        return target_.receive(message, timeout);
    }

private:
    hostbridge::MessageTransport& target_;
};

}  // namespace udstest
