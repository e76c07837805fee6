#include "host/xcp/master/xcp_session.h"

#include <algorithm>
#include <cstring>

#include "host/workstation.h"
#include "host/xcp/xcp_protocol.h"

namespace hostxcp {

namespace {

// A slave that answers every command with EV_CMD_PENDING would hold the caller forever.
constexpr int kMaxPending = 1000;
// Answers kept while a command waits; more means a flood, the oldest go.
constexpr std::size_t kMaxAnswers = 1024;
// Ids with this bit set are 29-bit identifiers.
constexpr uint32_t kExtendedBit = 0x80000000u;

bool isExtended(uint32_t id) { return (id & kExtendedBit) != 0; }
uint32_t rawId(uint32_t id) { return id & 0x1FFFFFFFu; }

uint8_t fdLength(std::size_t n) {
    static const uint8_t kLengths[] = {8, 12, 16, 20, 24, 32, 48, 64};
    for (uint8_t l : kLengths) {
        if (n <= l) return l;
    }
    return 64;
}

// Which resource of CONNECT a command needs, 0 for none.
uint8_t resourceOf(uint8_t code) {
    if (code == cmd::kWriteDaqMultiple) return res::kDaq;
    if (code >= cmd::kModifyBits && code <= cmd::kDownload) return res::kCalPag;  // 0xEC..0xF0
    if (code >= cmd::kCopyCalPage && code <= cmd::kSetCalPage) return res::kCalPag;    // 0xE4..0xEB
    if (code >= cmd::kAllocOdtEntry && code <= cmd::kClearDaqList) return res::kDaq;   // 0xD3..0xE3
    if (code >= cmd::kProgramVerify && code <= cmd::kProgramStart) return res::kPgm;   // 0xC8..0xD2
    return 0;
}

}  // namespace

struct Session::Exchange {
    std::vector<std::vector<uint8_t>> frames;  // sent in order, MIN_ST apart
    int timeout = 1;                           // T1..T6
    std::size_t answers = 1;                   // packets to collect; 0: nothing is awaited
    bool synchFirst = true;                    // a repeat after a time-out begins with SYNCH
    bool broadcast = false;
    bool isSynch = false;
    bool restoreMta = false;
    uint8_t mtaExt = 0;
    uint32_t mta = 0;
    std::vector<Packet> got;
};

Session::Session(ChannelLink link, const XcpTransportLayerCan& tl, const XcpProtocolLayerCfg& pl)
    : link_(link), tl_(tl), pl_(pl) {
    info_.motorola = pl.MotorolaFormat != 0;
    info_.addressGranularity = pl.AddressGranularity;
    info_.maxCto = 8;
    info_.maxDto = 8;
}

void Session::onFrame(const std::shared_ptr<MsgHeaderBase>& message) {
    const KELN::CanHeader* h = KELN::CanMsgAnalyse::getCanHeader(message);
    if (h == nullptr || h->remote || h->channel != link_.wsChannel) return;
    Packet p;
    p.len = std::min<uint8_t>(h->length, sizeof p.data);
    std::memcpy(p.data, KELN::CanMsgAnalyse::getCanData(message), p.len);
    p.timestampUs = h->timestamp;
    bool wake = false;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (closed_ || h->identifier != rawId(tl_.SlaveID) || h->extended != isExtended(tl_.SlaveID)) return;
        if (p.len == 0) {
            ++malformed_;
            return;
        }
        const auto keep = [](std::deque<Packet>& q, std::size_t cap, uint64_t& dropped, const Packet& packet) {
            while (q.size() >= cap) {
                q.pop_front();
                ++dropped;
            }
            q.push_back(packet);
        };
        const uint8_t id = p.data[0];
        if (id == pid::kResponse || id == pid::kError) {
            if (!awaiting_) return;  // nobody asked
            uint64_t ignored = 0;
            keep(answers_, kMaxAnswers, ignored, p);
            wake = true;
        } else if (id == pid::kEvent) {
            keep(cto_, ctoCap_, ctoDropped_, p);
            if (awaiting_ && p.len >= 2 && p.data[1] == ev::kCmdPending) {
                uint64_t ignored = 0;
                keep(answers_, kMaxAnswers, ignored, p);
                wake = true;
            }
        } else if (id == pid::kService) {
            keep(cto_, ctoCap_, ctoDropped_, p);
        } else if (p.len < info_.daqIdBytes + 1) {
            ++malformed_;
        } else {
            keep(dto_, dtoCap_, dtoDropped_, p);
        }
    }
    if (wake) cv_.notify_all();
}

void Session::close() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        closed_ = true;
    }
    cv_.notify_all();
}

void Session::reconfigure(const XcpTransportLayerCan& tl, const XcpProtocolLayerCfg& pl) {
    std::lock_guard<std::mutex> serial(commandMutex_);
    std::lock_guard<std::mutex> lock(mutex_);
    // Other ids are another slave: its connection is not ours.
    if (tl.MasterID != tl_.MasterID || tl.SlaveID != tl_.SlaveID) {
        info_ = SessionInfo{};
        info_.maxCto = 8;
        info_.maxDto = 8;
        mtaKnown_ = false;
    }
    tl_ = tl;
    pl_ = pl;
    if (!info_.connected) {
        info_.motorola = pl.MotorolaFormat != 0;
        info_.addressGranularity = pl.AddressGranularity;
    }
}

// ---- queues ----

int32_t Session::dequeue(uint8_t queue, uint8_t* buf, uint16_t cap, uint16_t* len, uint64_t* ts) {
    if (queue != XCP_CTO_QUEUE && queue != XCP_DTO_QUEUE) return XCP_ERR_FAILED;
    if (buf == nullptr && cap > 0) return XCP_ERR_FAILED;
    Packet p;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        std::deque<Packet>& q = queue == XCP_CTO_QUEUE ? cto_ : dto_;
        if (q.empty()) return XCP_ERR_QUEUE_EMPTY;
        p = q.front();
        q.pop_front();
    }
    if (buf != nullptr) std::memcpy(buf, p.data, std::min<std::size_t>(p.len, cap));
    if (len != nullptr) *len = p.len;
    if (ts != nullptr) *ts = p.timestampUs;
    return p.len > cap ? XCP_ERR_BUFFER_TOO_SMALL : XCP_ERR_SUCCESS;
}

int32_t Session::resetQueue(uint8_t queue) {
    if (queue != XCP_CTO_QUEUE && queue != XCP_DTO_QUEUE) return XCP_ERR_FAILED;
    std::lock_guard<std::mutex> lock(mutex_);
    (queue == XCP_CTO_QUEUE ? cto_ : dto_).clear();
    return XCP_ERR_SUCCESS;
}

int32_t Session::stats(uint8_t queue, QueueStats* out) {
    if ((queue != XCP_CTO_QUEUE && queue != XCP_DTO_QUEUE) || out == nullptr) return XCP_ERR_FAILED;
    std::lock_guard<std::mutex> lock(mutex_);
    const bool cto = queue == XCP_CTO_QUEUE;
    out->queued = cto ? cto_.size() : dto_.size();
    out->capacity = cto ? ctoCap_ : dtoCap_;
    out->dropped = cto ? ctoDropped_ : dtoDropped_;
    out->malformed = malformed_;
    return XCP_ERR_SUCCESS;
}

int32_t Session::setCapacity(uint8_t queue, std::size_t capacity) {
    if ((queue != XCP_CTO_QUEUE && queue != XCP_DTO_QUEUE) || capacity == 0) return XCP_ERR_FAILED;
    std::lock_guard<std::mutex> lock(mutex_);
    std::deque<Packet>& q = queue == XCP_CTO_QUEUE ? cto_ : dto_;
    uint64_t& dropped = queue == XCP_CTO_QUEUE ? ctoDropped_ : dtoDropped_;
    (queue == XCP_CTO_QUEUE ? ctoCap_ : dtoCap_) = capacity;
    while (q.size() > capacity) {
        q.pop_front();
        ++dropped;
    }
    return XCP_ERR_SUCCESS;
}

SessionInfo Session::info() {
    std::lock_guard<std::mutex> lock(mutex_);
    return info_;
}

// ---- the engine ----

uint32_t Session::timeoutMs(int t) const {
    if (t == 7) return pl_.T7;  // a pause, not a time-out: zero is no pause
    const uint32_t values[] = {pl_.T1, pl_.T1, pl_.T2, pl_.T3, pl_.T4, pl_.T5, pl_.T6};
    const uint32_t v = values[std::min(std::max(t, 1), 6)];
    return v != 0 ? v : pl_.T1;
}

uint8_t Session::ctoLimit() const { return info_.connected ? info_.maxCto : 8; }

bool Session::motorola() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return info_.motorola;
}

void Session::put16(std::vector<uint8_t>& v, uint16_t x) const {
    if (motorola()) {
        v.push_back(static_cast<uint8_t>(x >> 8));
        v.push_back(static_cast<uint8_t>(x));
    } else {
        v.push_back(static_cast<uint8_t>(x));
        v.push_back(static_cast<uint8_t>(x >> 8));
    }
}

void Session::put32(std::vector<uint8_t>& v, uint32_t x) const {
    if (motorola()) {
        put16(v, static_cast<uint16_t>(x >> 16));
        put16(v, static_cast<uint16_t>(x));
    } else {
        put16(v, static_cast<uint16_t>(x));
        put16(v, static_cast<uint16_t>(x >> 16));
    }
}

bool Session::send(const uint8_t* data, std::size_t len, bool broadcast) {
    const uint32_t id = broadcast ? tl_.BroadcastID : tl_.MasterID;
    uint8_t frame[64];
    std::size_t size = len;
    if (pl_.padding) size = std::max<std::size_t>(size, 8);
    if (link_.fd && size > 8) size = fdLength(size);  // an FD frame has no length in between
    if (size > (link_.fd ? 64u : 8u)) return false;
    std::memcpy(frame, data, len);
    std::memset(frame + len, pl_.padding_data, size - len);
    auto message = hostbridge::makeCanFrame(0, link_.wsChannel, rawId(id), isExtended(id), link_.fd, link_.fd,
                                            frame, static_cast<int>(size));
    try {
        return data_flow_interface::sendCan(NETWORK_CAN, link_.wsChannel, message, PRIORITY_NORMAL) == 0;
    } catch (...) {
        return false;  // a pre-send handler threw
    }
}

Session::Wait Session::waitAnswer(Clock& clock, uint32_t timeoutMs, Packet& answer) {
    const int64_t span = static_cast<int64_t>(timeoutMs) * 1000;
    std::unique_lock<std::mutex> lock(mutex_);
    int64_t deadline = clock.nowUs() + span;
    int pending = 0;
    for (;;) {
        while (!answers_.empty()) {
            const Packet p = answers_.front();
            answers_.pop_front();
            if (p.data[0] == pid::kEvent) {
                // The slave needs longer: the time-out starts again.
                if (++pending <= kMaxPending) deadline = clock.nowUs() + span;
                continue;
            }
            answer = p;
            return Wait::Answer;
        }
        if (closed_) return Wait::Closed;
        if (clock.nowUs() >= deadline) return Wait::Timeout;
        clock.waitUntil(lock, cv_, deadline);
    }
}

void Session::sleepFor(Clock& clock, int64_t us) {
    std::unique_lock<std::mutex> lock(mutex_);
    const int64_t until = clock.nowUs() + us;
    while (!closed_ && clock.nowUs() < until) clock.waitUntil(lock, cv_, until);
}

int32_t Session::attempt(Exchange& ex, Clock& clock, std::vector<Packet>& got, bool& timedOut) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (closed_) return XCP_ERR_NO_HANDLE;
        answers_.clear();  // late answers of an earlier command
        awaiting_ = true;
    }
    struct Done {
        Session* s;
        ~Done() {
            std::lock_guard<std::mutex> lock(s->mutex_);
            s->awaiting_ = false;
        }
    } done{this};
    for (std::size_t i = 0; i < ex.frames.size(); ++i) {
        if (i > 0) {
            if (info_.minSt != 0) sleepFor(clock, int64_t{info_.minSt} * 100);
            std::lock_guard<std::mutex> lock(mutex_);
            // An error in the middle of a block ends it.
            const auto error = std::find_if(answers_.begin(), answers_.end(),
                                            [](const Packet& p) { return p.data[0] == pid::kError; });
            if (error != answers_.end()) {
                got.push_back(*error);
                return XCP_ERR_SUCCESS;
            }
        }
        if (!send(ex.frames[i].data(), ex.frames[i].size(), ex.broadcast)) return XCP_ERR_FAILED;
    }
    const uint32_t t = timeoutMs(ex.timeout);
    while (got.size() < ex.answers) {
        Packet p;
        const Wait w = waitAnswer(clock, t, p);
        if (w == Wait::Closed) return XCP_ERR_NO_HANDLE;
        if (w == Wait::Timeout) {
            timedOut = true;
            return XCP_ERR_SUCCESS;
        }
        const bool lateSynch = !ex.isSynch && p.data[0] == pid::kError && p.len >= 2 && p.data[1] == err::kCmdSynch;
        if (lateSynch) continue;  // the answer to our own SYNCH, come late
        got.push_back(p);
        if (p.data[0] == pid::kError) break;
    }
    return XCP_ERR_SUCCESS;
}

void Session::preAction(Clock& clock, const Exchange& ex) {
    Exchange synch;
    synch.frames = {{cmd::kSynch}};
    synch.isSynch = true;
    bool timedOut = false;
    std::vector<Packet> got;
    if (ex.synchFirst && attempt(synch, clock, got, timedOut) != XCP_ERR_SUCCESS) return;
    if (!ex.restoreMta) return;
    Exchange mta;
    std::vector<uint8_t> f{cmd::kSetMta, 0, 0, ex.mtaExt};
    put32(f, ex.mta);
    mta.frames = {f};
    got.clear();
    attempt(mta, clock, got, timedOut);
}

int32_t Session::run(Exchange& ex) {
    const std::shared_ptr<Clock> clock = currentClock();
    int tries = 0;
    int busy = 0;
    for (;;) {
        ex.got.clear();
        bool timedOut = false;
        const int32_t rc = attempt(ex, *clock, ex.got, timedOut);
        if (rc != XCP_ERR_SUCCESS) return rc;
        if (ex.answers == 0) return XCP_ERR_SUCCESS;
        if (timedOut) {
            if (tries >= pl_.Retries) return XCP_ERR_TIMEOUT;
            ++tries;
            preAction(*clock, ex);
            continue;
        }
        const Packet& last = ex.got.back();
        if (last.data[0] == pid::kError && last.len >= 2 && last.data[1] == err::kCmdBusy && busy < pl_.Retries) {
            ++busy;
            sleepFor(*clock, int64_t{timeoutMs(7)} * 1000);
            continue;
        }
        return XCP_ERR_SUCCESS;
    }
}

int32_t Session::deliver(const Packet& answer, uint8_t* out, uint16_t outLen) {
    if (out != nullptr) std::memcpy(out, answer.data, std::min<std::size_t>(answer.len, outLen));
    if (answer.data[0] == pid::kError) {
        if (answer.len < 2) return XCP_ERR_PROTOCOL;
        return XCP_ERR_SLAVE + answer.data[1];
    }
    if (answer.data[0] != pid::kResponse) return XCP_ERR_PROTOCOL;
    return out != nullptr && answer.len > outLen ? XCP_ERR_BUFFER_TOO_SMALL : XCP_ERR_SUCCESS;
}

int32_t Session::gate(uint8_t code, bool needConnection) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (closed_) return XCP_ERR_NO_HANDLE;
    if (!needConnection) return XCP_ERR_SUCCESS;
    if (!info_.connected) return XCP_ERR_NOT_CONNECTED;
    const uint8_t needs = resourceOf(code);
    if (needs != 0 && (info_.resource & needs) == 0) return XCP_ERR_NOT_SUPPORTED;
    return XCP_ERR_SUCCESS;
}

int32_t Session::oneExchange(const std::vector<uint8_t>& request, int timeout, Packet& answer, bool retrySynch) {
    Exchange ex;
    ex.frames = {request};
    ex.timeout = timeout;
    ex.synchFirst = retrySynch;
    const int32_t rc = run(ex);
    if (rc == XCP_ERR_SUCCESS) answer = ex.got.back();
    return rc;
}

// ---- commands ----

#define XCP_GATE(code, connection)                       \
    do {                                                 \
        const int32_t gate_rc = gate((code), (connection)); \
        if (gate_rc != XCP_ERR_SUCCESS) return gate_rc;  \
    } while (0)

int32_t Session::connect(uint8_t mode, uint8_t* out, uint16_t outLen) {
    XCP_GATE(cmd::kConnect, false);
    std::lock_guard<std::mutex> serial(commandMutex_);
    Packet p;
    // Not connected yet, nothing to SYNCH: CONNECT itself is repeated.
    const int32_t rc = oneExchange({cmd::kConnect, mode}, mode == 1 ? 6 : 1, p, false);
    if (rc != XCP_ERR_SUCCESS) return rc;
    if (p.data[0] != pid::kResponse) return deliver(p, out, outLen);
    if (p.len < 8) return XCP_ERR_PROTOCOL;
    const uint8_t comm = p.data[2];
    const uint8_t agBits = (comm >> 1) & 3;
    const bool motorola = (comm & 1) != 0;
    const uint16_t maxDto = motorola ? static_cast<uint16_t>(p.data[4] << 8 | p.data[5])
                                     : static_cast<uint16_t>(p.data[5] << 8 | p.data[4]);
    if (agBits == 3 || p.data[3] < 8 || maxDto < 8) return XCP_ERR_PROTOCOL;
    {
        const uint8_t frameMax = link_.fd ? 64 : 8;
        std::lock_guard<std::mutex> lock(mutex_);
        info_ = SessionInfo{};
        info_.connected = true;
        info_.resource = p.data[1];
        info_.commModeBasic = comm;
        info_.motorola = motorola;
        info_.addressGranularity = static_cast<uint8_t>(1u << agBits);
        info_.slaveBlockMode = (comm & 0x40) != 0;
        info_.maxCto = std::min(p.data[3], frameMax);
        info_.maxDto = std::min<uint16_t>(maxDto, frameMax);
        mtaKnown_ = false;
    }
    return deliver(p, out, outLen);
}

int32_t Session::simple(const std::vector<uint8_t>& request, int timeout, uint8_t* out, uint16_t outLen) {
    const uint8_t code = request[0];
    XCP_GATE(code, true);
    std::lock_guard<std::mutex> serial(commandMutex_);
    if (request.size() > ctoLimit()) return XCP_ERR_FAILED;
    Packet p;
    const int32_t rc = oneExchange(request, timeout, p);
    if (rc != XCP_ERR_SUCCESS) return rc;
    if (p.data[0] == pid::kResponse) {
        std::lock_guard<std::mutex> lock(mutex_);
        switch (code) {
        case cmd::kDisconnect:
        case cmd::kProgramReset:
            info_.connected = false;
            mtaKnown_ = false;
            break;
        case cmd::kGetCommModeInfo:
            if (p.len < 6) return XCP_ERR_PROTOCOL;
            info_.masterBlockMode = (p.data[2] & 1) != 0;
            info_.maxBs = p.data[4];
            info_.minSt = p.data[5];
            break;
        case cmd::kGetDaqProcessorInfo: {
            if (p.len < 8) return XCP_ERR_PROTOCOL;
            static const uint8_t kIdBytes[4] = {1, 2, 3, 4};
            info_.daqIdBytes = kIdBytes[(p.data[7] >> 6) & 3];
            break;
        }
        default:
            break;
        }
    }
    return deliver(p, out, outLen);
}

int32_t Session::synch(uint8_t* out, uint16_t outLen) {
    XCP_GATE(cmd::kSynch, true);
    std::lock_guard<std::mutex> serial(commandMutex_);
    Exchange ex;
    ex.frames = {{cmd::kSynch}};
    ex.synchFirst = false;
    ex.isSynch = true;
    const int32_t rc = run(ex);
    if (rc != XCP_ERR_SUCCESS) return rc;
    const Packet& p = ex.got.back();
    // ERR_CMD_SYNCH is how a slave answers SYNCH.
    if (p.data[0] == pid::kError && p.len >= 2 && p.data[1] == err::kCmdSynch) {
        if (out != nullptr) std::memcpy(out, p.data, std::min<std::size_t>(p.len, outLen));
        return out != nullptr && p.len > outLen ? XCP_ERR_BUFFER_TOO_SMALL : XCP_ERR_SUCCESS;
    }
    return deliver(p, out, outLen);
}

int32_t Session::transportLayer(uint8_t code, uint8_t sub, const uint8_t* parm, uint16_t parmLen, uint8_t* out,
                                uint16_t outLen) {
    // GET_SLAVE_ID finds slaves: it goes to every slave on the broadcast id, before any CONNECT.
    const bool broadcast = code == cmd::kTransportLayerCmd && sub == tl::kGetSlaveId;
    XCP_GATE(code, !broadcast);
    if (parm == nullptr && parmLen > 0) return XCP_ERR_FAILED;
    std::lock_guard<std::mutex> serial(commandMutex_);
    if (std::size_t{parmLen} + 2 > ctoLimit()) return XCP_ERR_FAILED;
    Exchange ex;
    ex.frames.push_back({code, sub});
    ex.frames[0].insert(ex.frames[0].end(), parm, parm + parmLen);
    ex.broadcast = broadcast;
    ex.synchFirst = !broadcast;
    const int32_t rc = run(ex);
    return rc != XCP_ERR_SUCCESS ? rc : deliver(ex.got.back(), out, outLen);
}

int32_t Session::shortUpload(uint16_t n, uint8_t ext, uint32_t address, uint8_t* out, uint16_t outLen) {
    XCP_GATE(cmd::kShortUpload, true);
    std::lock_guard<std::mutex> serial(commandMutex_);
    const uint8_t ag = info_.addressGranularity;
    if (n == 0 || n > ctoLimit() / ag - 1) return XCP_ERR_FAILED;
    std::vector<uint8_t> request{cmd::kShortUpload, static_cast<uint8_t>(n), 0, ext};
    put32(request, address);
    Packet p;
    const int32_t rc = oneExchange(request, 1, p);
    if (rc != XCP_ERR_SUCCESS) return rc;
    if (p.data[0] == pid::kResponse) {
        if (p.len < ag + n * ag) return XCP_ERR_PROTOCOL;
        mtaKnown_ = true;
        mtaExt_ = ext;
        mta_ = address + n;
    }
    return deliver(p, out, outLen);
}

int32_t Session::upload(uint16_t n, uint8_t* element, uint8_t* out, uint16_t outLen) {
    XCP_GATE(cmd::kUpload, true);
    if (n == 0 || element == nullptr) return XCP_ERR_FAILED;
    std::lock_guard<std::mutex> serial(commandMutex_);
    const uint8_t ag = info_.addressGranularity;
    // An answer carries the PID, AG-1 bytes of alignment and whole elements.
    const std::size_t perFrame = ctoLimit() / ag - 1;
    std::size_t remaining = n;
    std::size_t written = 0;
    Packet last;
    while (remaining > 0) {
        const std::size_t chunk = std::min(remaining, info_.slaveBlockMode ? std::size_t{255} : perFrame);
        Exchange ex;
        ex.frames = {{cmd::kUpload, static_cast<uint8_t>(chunk)}};
        ex.answers = (chunk + perFrame - 1) / perFrame;
        ex.restoreMta = mtaKnown_;
        ex.mtaExt = mtaExt_;
        ex.mta = mta_;
        const int32_t rc = run(ex);
        if (rc != XCP_ERR_SUCCESS) return rc;
        std::size_t left = chunk * ag;
        for (const Packet& p : ex.got) {
            if (p.data[0] != pid::kResponse) return deliver(p, out, outLen);
            const std::size_t take = std::min(left, perFrame * ag);
            if (p.len < ag + take) return XCP_ERR_PROTOCOL;
            std::memcpy(element + written, p.data + ag, take);
            written += take;
            left -= take;
        }
        remaining -= chunk;
        mta_ += static_cast<uint32_t>(chunk);
        last = ex.got.back();
    }
    return deliver(last, out, outLen);
}

int32_t Session::setMta(uint8_t ext, uint32_t address, uint8_t* out, uint16_t outLen) {
    XCP_GATE(cmd::kSetMta, true);
    std::lock_guard<std::mutex> serial(commandMutex_);
    std::vector<uint8_t> request{cmd::kSetMta, 0, 0, ext};
    put32(request, address);
    Packet p;
    const int32_t rc = oneExchange(request, 1, p);
    if (rc != XCP_ERR_SUCCESS) return rc;
    if (p.data[0] == pid::kResponse) {
        mtaKnown_ = true;
        mtaExt_ = ext;
        mta_ = address;
    }
    return deliver(p, out, outLen);
}

int32_t Session::unlock(uint8_t keyLen, const uint8_t* key, uint8_t* out, uint16_t outLen) {
    XCP_GATE(cmd::kUnlock, true);
    if (key == nullptr && keyLen > 0) return XCP_ERR_FAILED;
    std::lock_guard<std::mutex> serial(commandMutex_);
    // The length is what remains of the key; the first part goes in this command.
    const std::size_t part = std::min<std::size_t>(keyLen, ctoLimit() - 2);
    std::vector<uint8_t> request{cmd::kUnlock, keyLen};
    request.insert(request.end(), key, key + part);
    Packet p;
    const int32_t rc = oneExchange(request, 1, p);
    return rc != XCP_ERR_SUCCESS ? rc : deliver(p, out, outLen);
}

int32_t Session::getSeedEx(uint8_t resource, uint8_t* seed, uint8_t* seedLen) {
    XCP_GATE(cmd::kGetSeed, true);
    if (seedLen == nullptr || (seed == nullptr && *seedLen > 0)) return XCP_ERR_FAILED;
    std::lock_guard<std::mutex> serial(commandMutex_);
    const std::size_t room = ctoLimit() - 2;
    std::vector<uint8_t> all;
    std::size_t total = 0;
    // Mode 0 asks for the seed of a resource, mode 1 for the rest of it; each answer tells how
    // much of the seed remains, this part included.
    for (uint8_t mode = 0;; mode = 1) {
        Packet p;
        const int32_t rc = oneExchange({cmd::kGetSeed, mode, resource}, 1, p);
        if (rc != XCP_ERR_SUCCESS) return rc;
        if (p.data[0] != pid::kResponse) return deliver(p, nullptr, 0);
        if (p.len < 2) return XCP_ERR_PROTOCOL;
        const std::size_t remaining = p.data[1];
        if (mode == 0) {
            total = remaining;
        } else if (remaining != total - all.size() || remaining == 0) {
            return XCP_ERR_PROTOCOL;
        }
        const std::size_t part = std::min(remaining, room);
        if (p.len < 2 + part) return XCP_ERR_PROTOCOL;
        all.insert(all.end(), p.data + 2, p.data + 2 + part);
        if (all.size() == total) break;
    }
    const std::size_t cap = *seedLen;
    if (!all.empty()) std::memcpy(seed, all.data(), std::min(cap, all.size()));
    *seedLen = static_cast<uint8_t>(std::min(cap, all.size()));
    return all.size() > cap ? XCP_ERR_BUFFER_TOO_SMALL : XCP_ERR_SUCCESS;
}

int32_t Session::unlockEx(uint8_t keyLen, const uint8_t* key) {
    XCP_GATE(cmd::kUnlock, true);
    if (key == nullptr && keyLen > 0) return XCP_ERR_FAILED;
    std::lock_guard<std::mutex> serial(commandMutex_);
    const std::size_t room = ctoLimit() - 2;
    std::size_t sent = 0;
    do {
        const std::size_t remaining = keyLen - sent;
        const std::size_t part = std::min(remaining, room);
        std::vector<uint8_t> request{cmd::kUnlock, static_cast<uint8_t>(remaining)};
        request.insert(request.end(), key + sent, key + sent + part);
        Packet p;
        const int32_t rc = oneExchange(request, 1, p);
        if (rc != XCP_ERR_SUCCESS) return rc;
        if (p.data[0] != pid::kResponse) return deliver(p, nullptr, 0);
        if (p.len < 2) return XCP_ERR_PROTOCOL;
        sent += part;
    } while (sent < keyLen);
    return XCP_ERR_SUCCESS;
}

int32_t Session::download(bool program, uint8_t n, const uint8_t* data, uint8_t len, uint8_t* out, uint16_t outLen) {
    const uint8_t code = program ? cmd::kProgram : cmd::kDownload;
    const uint8_t next = program ? cmd::kProgramNext : cmd::kDownloadNext;
    XCP_GATE(code, true);
    std::lock_guard<std::mutex> serial(commandMutex_);
    const std::size_t ag = info_.addressGranularity;
    if (n == 0 || data == nullptr || len < n * ag) return XCP_ERR_FAILED;
    // PID and count, then alignment up to the element size.
    const std::size_t header = std::max<std::size_t>(2, ag);
    const std::size_t perFrame = (ctoLimit() - header) / ag;
    // Without master block mode every frame is a command of its own with its answer.
    const std::size_t framesPerBlock = info_.masterBlockMode ? (info_.maxBs != 0 ? info_.maxBs : 255) : 1;
    std::size_t remaining = n;
    std::size_t offset = 0;
    Packet last;
    while (remaining > 0) {
        const std::size_t block = std::min(remaining, perFrame * framesPerBlock);
        Exchange ex;
        ex.timeout = program ? 5 : 1;
        ex.restoreMta = mtaKnown_;
        ex.mtaExt = mtaExt_;
        ex.mta = mta_;
        for (std::size_t left = block; left > 0;) {
            const std::size_t here = std::min(left, perFrame);
            std::vector<uint8_t> f{ex.frames.empty() ? code : next, static_cast<uint8_t>(left)};
            f.resize(header, 0);
            const uint8_t* from = data + offset + (block - left) * ag;
            f.insert(f.end(), from, from + here * ag);
            ex.frames.push_back(std::move(f));
            left -= here;
        }
        const int32_t rc = run(ex);
        if (rc != XCP_ERR_SUCCESS) return rc;
        last = ex.got.back();
        if (last.data[0] != pid::kResponse) return deliver(last, out, outLen);
        remaining -= block;
        offset += block * ag;
        mta_ += static_cast<uint32_t>(block);
    }
    return deliver(last, out, outLen);
}

int32_t Session::downloadNext(bool program, uint8_t n, const uint8_t* data, uint8_t len, uint8_t* out,
                              uint16_t outLen) {
    const uint8_t code = program ? cmd::kProgramNext : cmd::kDownloadNext;
    XCP_GATE(code, true);
    std::lock_guard<std::mutex> serial(commandMutex_);
    const std::size_t ag = info_.addressGranularity;
    const std::size_t header = std::max<std::size_t>(2, ag);
    const std::size_t here = std::min<std::size_t>(n, (ctoLimit() - header) / ag);
    if (n == 0 || data == nullptr || len < here * ag) return XCP_ERR_FAILED;
    Exchange ex;
    ex.timeout = program ? 5 : 1;
    std::vector<uint8_t> f{code, n};
    f.resize(header, 0);
    f.insert(f.end(), data, data + here * ag);
    ex.frames = {f};
    // Within a block the slave answers the last frame only.
    ex.answers = here == n ? 1 : 0;
    ex.synchFirst = true;
    const int32_t rc = run(ex);
    if (rc != XCP_ERR_SUCCESS || ex.answers == 0) return rc;
    return deliver(ex.got.back(), out, outLen);
}

int32_t Session::downloadMax(bool program, const uint8_t* data, uint8_t* out, uint16_t outLen) {
    const uint8_t code = program ? cmd::kProgramMax : cmd::kDownloadMax;
    XCP_GATE(code, true);
    if (data == nullptr) return XCP_ERR_FAILED;
    std::lock_guard<std::mutex> serial(commandMutex_);
    const std::size_t ag = info_.addressGranularity;
    const std::size_t count = ctoLimit() / ag - 1;
    std::vector<uint8_t> f{code};
    f.resize(ag, 0);
    f.insert(f.end(), data, data + count * ag);
    Packet p;
    const int32_t rc = oneExchange(f, program ? 5 : 1, p);
    if (rc != XCP_ERR_SUCCESS) return rc;
    if (p.data[0] == pid::kResponse) mta_ += static_cast<uint32_t>(count);
    return deliver(p, out, outLen);
}

int32_t Session::shortDownload(uint8_t n, uint8_t ext, uint32_t address, const uint8_t* data, uint8_t len,
                               uint8_t* out, uint16_t outLen) {
    XCP_GATE(cmd::kShortDownload, true);
    std::lock_guard<std::mutex> serial(commandMutex_);
    const std::size_t ag = info_.addressGranularity;
    if (n == 0 || data == nullptr || len < n * ag || 8 + n * ag > ctoLimit()) return XCP_ERR_FAILED;
    std::vector<uint8_t> f{cmd::kShortDownload, n, 0, ext};
    put32(f, address);
    f.insert(f.end(), data, data + n * ag);
    Packet p;
    const int32_t rc = oneExchange(f, 1, p);
    if (rc != XCP_ERR_SUCCESS) return rc;
    if (p.data[0] == pid::kResponse) {
        mtaKnown_ = true;
        mtaExt_ = ext;
        mta_ = address + n;
    }
    return deliver(p, out, outLen);
}

int32_t Session::writeDaqEntries(uint8_t count, const XcpODTEntry* entries, uint8_t* out, uint16_t outLen) {
    XCP_GATE(cmd::kWriteDaqMultiple, true);
    if (count == 0 || entries == nullptr) return XCP_ERR_FAILED;
    std::lock_guard<std::mutex> serial(commandMutex_);
    // Eight bytes an entry after the PID and the count; a CTO too small for one takes WRITE_DAQs.
    const std::size_t per = (ctoLimit() - 2) / 8;
    std::size_t done = 0;
    Packet p;
    while (done < count) {
        std::vector<uint8_t> f;
        if (per == 0) {
            const XcpODTEntry& e = entries[done++];
            f = {cmd::kWriteDaq, e.BitOffset, e.DAQSize, e.DAQAddressExtension};
            put32(f, e.DAQAddress);
        } else {
            const std::size_t k = std::min<std::size_t>(count - done, per);
            f = {cmd::kWriteDaqMultiple, static_cast<uint8_t>(k)};
            for (std::size_t i = 0; i < k; ++i) {
                const XcpODTEntry& e = entries[done++];
                f.push_back(e.BitOffset);
                f.push_back(e.DAQSize);
                put32(f, e.DAQAddress);
                f.push_back(e.DAQAddressExtension);
                f.push_back(0);
            }
        }
        const int32_t rc = oneExchange(f, 1, p);
        if (rc != XCP_ERR_SUCCESS) return rc;
        if (p.data[0] != pid::kResponse) break;
    }
    return deliver(p, out, outLen);
}

}  // namespace hostxcp
