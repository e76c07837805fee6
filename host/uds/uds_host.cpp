#include "host/uds/uds_host.h"

#include <array>
#include <exception>
#include <map>
#include <mutex>
#include <set>
#include <tuple>
#include <utility>
#include <vector>

#include "host/log_interface.h"

namespace {

using hostuds::UdsStatus;

constexpr std::chrono::milliseconds kDefaultP2{50};
constexpr std::chrono::milliseconds kDefaultP2Extend{5000};

// A transport serves one channel, one set of addresses and one set of link settings; whether a
// request goes out functionally is chosen per send, so use_fun_addr is not part of the key.
using LinkKey = std::array<uint32_t, 23>;

LinkKey linkKey(const diagnosis::diagnosis_service_s& service) {
    const diagnosis::DoCan& d = service.uds.protocol.docan;
    const diagnosis::CANBusCommItems& c = d.can_items;
    return {service.appconfig.channel, d.virutal_channel, d.diagnose_type, d.physical_address,
            d.physical_address_type, d.functional_address, d.functional_address_type,
            d.response_address, d.fill, d.N_AE, c.physical_address_ext, c.functional_address_ext,
            c.response_address_ext, c.en_custom_send_frame_interval, c.fd_en_brs, c.max_len,
            c.receive_frame_interval, c.send_frame_interval, c.send_block_size,
            c.fc_frame_after_interval, c.fd_max_dlc, c.fd_fill, c.tx_dlc};
}

// Sends and receives may overlap (a cyclic send during a long wait), each kind in turn.
struct Link {
    std::unique_ptr<hostbridge::MessageTransport> transport;
    std::mutex sendMutex;
    std::mutex receiveMutex;
    uint64_t lastUse = 0;
};

using CycleKey = std::tuple<uint32_t, uint32_t, uint32_t>;
using VciKey = std::pair<int, uint8_t>;

UdsVciParams builtinVciParams() {
    UdsVciParams p{};
    p.can_bitrate = 500000;
    p.canfd_bitrate = 2000000;
    p.n_as_ms = 1000;
    p.n_bs_ms = 1000;
    p.n_cr_ms = 1000;
    p.p2_ms = 50;
    p.p2extend_ms = 5000;
    p.block_size = 0;
    p.st_min = 0;
    return p;
}

struct State {
    std::mutex mutex;
    hostuds::TransportFactory factory = hostuds::isoTpTransportFactory();
    uint64_t factoryGeneration = 0;
    hostuds::Clock clock;
    unsigned maxPending = 100;
    std::map<LinkKey, std::shared_ptr<Link>> links;
    uint64_t useCounter = 0;
    std::set<CycleKey> disabledCycles;
    std::map<uint8_t, UDSMappingInfo> mappings;
    std::map<VciKey, UdsVciParams> vciParams;
    std::map<int, hostuds::VciDeviceState> vciDevices;
    UdsVciParams vciDefaults = builtinVciParams();
};

// Never destroyed: transports may hold threads and bus attachments that must not be torn down
// behind the workstation's back at exit. resetUdsState closes them in order.
State& state() {
    static State* instance = new State;
    return *instance;
}

std::vector<uint8_t> bytesOf(const BigMessageData* message) {
    if (message == nullptr || message->empty || message->data == nullptr || message->len == 0) return {};
    return std::vector<uint8_t>(message->data, message->data + message->len);
}

UDSProcessResult toResult(const hostuds::UdsResponse& response) {
    UDSProcessResult result;
    result.status = response.status;
    if (!response.message.empty() &&
        result.message.assign(response.message.data(), static_cast<uint32_t>(response.message.size())) != 0) {
        log_interface::log_error("uds: no memory for a response of %zu bytes", response.message.size());
    }
    return result;
}

UDSProcessResult statusOnly(uint8_t status) {
    UDSProcessResult result;
    result.status = status;
    return result;
}

const char* checkService(const diagnosis::diagnosis_service_s* service) {
    if (service == nullptr) return "no service record";
    if (service->uds.ptype != diagnosis::PROTOCOL_DoCAN) return "only DoCAN is served";
    return nullptr;
}

hostuds::UdsTiming timingOf(const diagnosis::diagnosis_service_s& service, unsigned maxPending) {
    hostuds::UdsTiming timing;
    timing.p2 = service.uds.p2time ? std::chrono::milliseconds(service.uds.p2time) : kDefaultP2;
    timing.p2extend =
        service.uds.p2extend_time ? std::chrono::milliseconds(service.uds.p2extend_time) : kDefaultP2Extend;
    timing.maxPending = maxPending;
    return timing;
}

struct Session {
    std::shared_ptr<Link> link;
    hostuds::Clock clock;
    unsigned maxPending = 0;
};

// The cached transport for the record, made by the factory on first use; null (logged) when
// there is none to be had.
Session openSession(const diagnosis::diagnosis_service_s& service) {
    State& s = state();
    LinkKey key = linkKey(service);
    const diagnosis::DoCan& docan = service.uds.protocol.docan;
    Session session;
    hostuds::TransportFactory factory;
    uint64_t generation = 0;
    {
        std::lock_guard<std::mutex> lock(s.mutex);
        session.clock = s.clock;
        session.maxPending = s.maxPending;
        auto found = s.links.find(key);
        if (found != s.links.end()) {
            found->second->lastUse = ++s.useCounter;
            session.link = found->second;
            return session;
        }
        factory = s.factory;
        generation = s.factoryGeneration;
    }
    if (!factory) {
        log_interface::log_error("uds: no transport for channel %u (0x%X/0x%X): no transport factory set",
                                 service.appconfig.channel, docan.physical_address, docan.response_address);
        return session;
    }
    auto link = std::make_shared<Link>();
    try {
        link->transport = factory(service);
    } catch (const std::exception& e) {
        log_interface::log_error("uds: the transport for channel %u could not be made: %s",
                                 service.appconfig.channel, e.what());
        return session;
    }
    if (!link->transport) {
        log_interface::log_error("uds: no transport for channel %u (0x%X/0x%X)", service.appconfig.channel,
                                 docan.physical_address, docan.response_address);
        return session;
    }
    std::shared_ptr<Link> evicted;
    std::lock_guard<std::mutex> lock(s.mutex);
    if (generation != s.factoryGeneration) {
        // The factory changed while this one was made: serve this call, keep nothing.
        session.link = link;
        return session;
    }
    auto found = s.links.find(key);
    if (found != s.links.end()) {
        found->second->lastUse = ++s.useCounter;
        session.link = found->second;
        return session;
    }
    if (s.links.size() >= hostuds::kMaxCachedTransports) {
        auto oldest = s.links.begin();
        for (auto it = s.links.begin(); it != s.links.end(); ++it)
            if (it->second->lastUse < oldest->second->lastUse) oldest = it;
        evicted = std::move(oldest->second);
        s.links.erase(oldest);
    }
    link->lastUse = ++s.useCounter;
    s.links.emplace(key, link);
    session.link = link;
    return session;
}

uint8_t sendOn(Link& link, hostuds::UdsClient& client, const std::vector<uint8_t>& request, bool functional) {
    std::lock_guard<std::mutex> lock(link.sendMutex);
    return client.send(request, functional);
}

}  // namespace

namespace uds {

int SendUDSMessage(diagnosis::diagnosis_service_s* service, BigMessageData* message) {
    if (const char* problem = checkService(service)) {
        log_interface::log_error("uds: SendUDSMessage: %s", problem);
        return hostuds::kUdsBadArgument;
    }
    std::vector<uint8_t> request = bytesOf(message);
    if (request.empty()) {
        log_interface::log_error("uds: SendUDSMessage: empty message");
        return hostuds::kUdsBadArgument;
    }
    Session session = openSession(*service);
    if (!session.link) return hostuds::kUdsSendError;
    hostuds::UdsClient client(*session.link->transport, session.clock);
    return sendOn(*session.link, client, request, service->uds.protocol.docan.use_fun_addr != 0);
}

UDSProcessResult WaitForUDSMessage(diagnosis::diagnosis_service_s* service, BigMessageData* expected) {
    if (const char* problem = checkService(service)) {
        log_interface::log_error("uds: WaitForUDSMessage: %s", problem);
        return statusOnly(hostuds::kUdsBadArgument);
    }
    std::vector<uint8_t> pattern = bytesOf(expected);
    uint8_t sid = pattern.empty() ? 0 : pattern[0];
    Session session = openSession(*service);
    if (!session.link) return statusOnly(hostuds::kUdsSendError);
    hostuds::UdsClient client(*session.link->transport, session.clock);
    std::lock_guard<std::mutex> lock(session.link->receiveMutex);
    return toResult(client.waitFor(sid, timingOf(*service, session.maxPending)));
}

UDSProcessResult SendAndRecvUDSMessage(diagnosis::diagnosis_service_s* service, BigMessageData* send,
                                       BigMessageData* /*expected*/) {
    if (const char* problem = checkService(service)) {
        log_interface::log_error("uds: SendAndRecvUDSMessage: %s", problem);
        return statusOnly(hostuds::kUdsBadArgument);
    }
    std::vector<uint8_t> request = bytesOf(send);
    if (request.empty()) {
        log_interface::log_error("uds: SendAndRecvUDSMessage: empty request");
        return statusOnly(hostuds::kUdsBadArgument);
    }
    Session session = openSession(*service);
    if (!session.link) return statusOnly(hostuds::kUdsSendError);
    hostuds::UdsClient client(*session.link->transport, session.clock);
    // Held from the drain to the response, so no other wait takes this request's answer.
    std::lock_guard<std::mutex> lock(session.link->receiveMutex);
    client.drain();
    uint8_t status = sendOn(*session.link, client, request, service->uds.protocol.docan.use_fun_addr != 0);
    if (status != hostuds::kUdsOk) return statusOnly(status);
    return toResult(client.waitFor(request[0], timingOf(*service, session.maxPending),
                                   hostuds::UdsClient::suppressesPositiveResponse(request)));
}

void SetCycleTaskEnable(diagnosis::DoCan docan, bool enable) {
    State& s = state();
    CycleKey key{docan.physical_address, docan.functional_address, docan.response_address};
    std::lock_guard<std::mutex> lock(s.mutex);
    if (enable) {
        s.disabledCycles.erase(key);
    } else {
        s.disabledCycles.insert(key);
    }
}

bool GetCycleTaskEnable(diagnosis::DoCan docan) {
    State& s = state();
    CycleKey key{docan.physical_address, docan.functional_address, docan.response_address};
    std::lock_guard<std::mutex> lock(s.mutex);
    return s.disabledCycles.count(key) == 0;
}

int SetUDSMappingInfo(const UDSMappingInfo& info) {
    if (info.ECUCount > UDSMappingInfo::kMaxEcus) {
        log_interface::log_error("uds: mapping of virtual channel %u has %u ECUs (at most %u)",
                                 info.virutal_channel, info.ECUCount, UDSMappingInfo::kMaxEcus);
        return -1;
    }
    UDSMappingInfo kept{};
    kept.virutal_channel = info.virutal_channel;
    kept.ECUCount = info.ECUCount;
    for (uint16_t i = 0; i < info.ECUCount; ++i) kept.addr[i] = info.addr[i];
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.mappings[info.virutal_channel] = kept;
    return 0;
}

namespace {

hostuds::VciDeviceState deviceState(const State& s, int device) {
    if (device < 0) return hostuds::VciDeviceState::Missing;
    auto found = s.vciDevices.find(device);
    return found == s.vciDevices.end() ? hostuds::VciDeviceState::Available : found->second;
}

}  // namespace

int GetVCIParam(int device, UdsVciParams& params) {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    if (deviceState(s, device) == hostuds::VciDeviceState::Missing) {
        log_interface::log_error("uds: GetVCIParam: no device %d", device);
        return -1;
    }
    uint8_t channel = params.channel;
    auto found = s.vciParams.find({device, channel});
    params = found == s.vciParams.end() ? s.vciDefaults : found->second;
    params.channel = channel;
    return 0;
}

int SetVCIParam(int device, const UdsVciParams& params) {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    hostuds::VciDeviceState deviceNow = deviceState(s, device);
    if (deviceNow == hostuds::VciDeviceState::Missing) {
        log_interface::log_error("uds: SetVCIParam: no device %d", device);
        return -1;
    }
    if (deviceNow == hostuds::VciDeviceState::ReadOnly) {
        log_interface::log_error("uds: SetVCIParam: device %d takes no parameters", device);
        return -2;
    }
    int32_t UdsVciParams::*const fields[] = {
        &UdsVciParams::can_bitrate, &UdsVciParams::canfd_bitrate, &UdsVciParams::n_as_ms,
        &UdsVciParams::n_bs_ms,     &UdsVciParams::n_cr_ms,       &UdsVciParams::p2_ms,
        &UdsVciParams::p2extend_ms, &UdsVciParams::block_size,    &UdsVciParams::st_min};
    for (auto field : fields) {
        if (params.*field < -1) {
            log_interface::log_error("uds: SetVCIParam: value %d out of range", params.*field);
            return -1;
        }
    }
    auto found = s.vciParams.find({device, params.channel});
    UdsVciParams stored = found == s.vciParams.end() ? s.vciDefaults : found->second;
    for (auto field : fields)
        if (params.*field != -1) stored.*field = params.*field;
    stored.channel = params.channel;
    s.vciParams[{device, params.channel}] = stored;
    return 0;
}

}  // namespace uds

namespace hostuds {

void setTransportFactory(TransportFactory factory) {
    State& s = state();
    std::map<LinkKey, std::shared_ptr<Link>> dropped;
    {
        std::lock_guard<std::mutex> lock(s.mutex);
        s.factory = std::move(factory);
        ++s.factoryGeneration;
        dropped.swap(s.links);
    }
    // Transports close here, outside the lock: closing may wait for their threads.
}

void setClock(Clock clock) {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.clock = std::move(clock);
}

void setMaxPending(unsigned count) {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.maxPending = count;
}

std::size_t cachedTransportCount() {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    return s.links.size();
}

bool udsMappingInfo(uint8_t virtualChannel, UDSMappingInfo& info) {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    auto found = s.mappings.find(virtualChannel);
    if (found == s.mappings.end()) return false;
    info = found->second;
    return true;
}

void setVciDeviceState(int device, VciDeviceState state) {
    if (device < 0) return;
    State& s = ::state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.vciDevices[device] = state;
}

void setDefaultVciParams(const UdsVciParams& params) {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.vciDefaults = params;
    s.vciDefaults.channel = 0;
}

UdsVciParams defaultVciParams() {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    return s.vciDefaults;
}

void resetUdsState() {
    setTransportFactory(isoTpTransportFactory());
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.clock = {};
    s.maxPending = 100;
    s.disabledCycles.clear();
    s.mappings.clear();
    s.vciParams.clear();
    s.vciDevices.clear();
    s.vciDefaults = builtinVciParams();
}

}  // namespace hostuds
