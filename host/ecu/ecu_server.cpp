#include "host/ecu/ecu_server.h"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <utility>

namespace hostbridge {
namespace ecu {

namespace {

// Negative response codes (ISO 14229-1).
constexpr uint8_t kServiceNotSupported = 0x11;
constexpr uint8_t kSubFunctionNotSupported = 0x12;
constexpr uint8_t kIncorrectLength = 0x13;
constexpr uint8_t kResponseTooLong = 0x14;
constexpr uint8_t kConditionsNotCorrect = 0x22;
constexpr uint8_t kRequestSequenceError = 0x24;
constexpr uint8_t kRequestOutOfRange = 0x31;
constexpr uint8_t kSecurityAccessDenied = 0x33;
constexpr uint8_t kInvalidKey = 0x35;
constexpr uint8_t kExceededAttempts = 0x36;
constexpr uint8_t kDelayNotExpired = 0x37;
constexpr uint8_t kResponsePending = 0x78;
constexpr uint8_t kSubFunctionNotSupportedInSession = 0x7E;
constexpr uint8_t kServiceNotSupportedInSession = 0x7F;

constexpr uint8_t kSuppressBit = 0x80;

std::vector<uint8_t> negative(uint8_t sid, uint8_t code) { return {0x7F, sid, code}; }

void putU16(std::vector<uint8_t>& out, uint32_t value) {
    out.push_back(static_cast<uint8_t>(value >> 8));
    out.push_back(static_cast<uint8_t>(value));
}

uint16_t getU16(const std::vector<uint8_t>& bytes, size_t at) {
    return static_cast<uint16_t>(bytes[at] << 8 | bytes[at + 1]);
}

// A functionally addressed request goes to every ECU; those that do not know it stay silent.
bool silentWhenFunctional(uint8_t code) {
    return code == kServiceNotSupported || code == kSubFunctionNotSupported ||
           code == kRequestOutOfRange || code == kSubFunctionNotSupportedInSession ||
           code == kServiceNotSupportedInSession;
}

std::chrono::microseconds ms(uint32_t milliseconds) {
    return std::chrono::microseconds(static_cast<int64_t>(milliseconds) * 1000);
}

}  // namespace

// The final answer to a request before the pending answers and the suppression rules.
struct EcuServer::Answer {
    std::vector<uint8_t> bytes;
    bool suppressPositive = false;
    std::optional<unsigned> pending;

    Answer(std::vector<uint8_t> b) : bytes(std::move(b)) {}  // implicit: handlers return byte lists
    Answer(std::vector<uint8_t> b, bool suppress, std::optional<unsigned> p = std::nullopt)
        : bytes(std::move(b)), suppressPositive(suppress), pending(p) {}
};

EcuServer::EcuServer(EcuConfig config) : config_(std::move(config)) {
    for (size_t i = 0; i < config_.dids.size(); ++i) didIndex_[config_.dids[i].id] = i;
}

EcuDid* EcuServer::findDid(uint16_t id) {
    const auto found = didIndex_.find(id);
    return found == didIndex_.end() ? nullptr : &config_.dids[found->second];
}

bool EcuServer::allowed(const SessionSet& sessions) const {
    return sessions.empty() || std::find(sessions.begin(), sessions.end(), session_) != sessions.end();
}

void EcuServer::backToDefault() {
    session_ = 0x01;
    unlockedLevel_ = 0;
    seedLevel_ = 0;
    routineRunning_.clear();
}

void EcuServer::advance(std::chrono::microseconds now) {
    if (session_ != 0x01 && now - lastActivity_ >= ms(config_.s3Ms)) backToDefault();
}

std::vector<EcuReply> EcuServer::handle(const std::vector<uint8_t>& request, bool functional,
                                        std::chrono::microseconds now) {
    advance(now);
    if (request.empty()) return {};
    Answer answer = dispatch(request, now);
    lastActivity_ = now;

    if (answer.bytes[0] != 0x7F && answer.bytes.size() > config_.maxResponseLength)
        answer = Answer(negative(request[0], kResponseTooLong));
    const bool isNegative = answer.bytes[0] == 0x7F;
    if (isNegative && functional && silentWhenFunctional(answer.bytes[2])) return {};
    // The time goes into doing the work: only a positive answer is preceded by pending ones.
    const unsigned pending = isNegative ? 0 : answer.pending.value_or(config_.pendingCount);
    // Once the tester was told to wait it gets the final answer, suppressed or not.
    if (!isNegative && answer.suppressPositive && pending == 0) return {};

    std::vector<EcuReply> replies;
    std::chrono::microseconds delay = ms(config_.responseDelayMs);
    for (unsigned i = 0; i < pending; ++i) {
        replies.push_back({delay, negative(request[0], kResponsePending)});
        lastActivity_ += delay;
        delay = ms(config_.pendingIntervalMs);
    }
    replies.push_back({delay, std::move(answer.bytes)});
    lastActivity_ += delay;  // the session timer runs from the final answer
    return replies;
}

EcuServer::Answer EcuServer::dispatch(const std::vector<uint8_t>& request, std::chrono::microseconds now) {
    const uint8_t sid = request[0];
    Answer (EcuServer::*handler)(const std::vector<uint8_t>&) = nullptr;
    switch (sid) {
    case 0x10: handler = &EcuServer::sessionControl; break;
    case 0x11: handler = &EcuServer::ecuReset; break;
    case 0x14: handler = &EcuServer::clearDtcs; break;
    case 0x19: handler = &EcuServer::readDtcs; break;
    case 0x22: handler = &EcuServer::readDids; break;
    case 0x27: break;
    case 0x2E: handler = &EcuServer::writeDid; break;
    case 0x31: handler = &EcuServer::routineControl; break;
    case 0x3E: handler = &EcuServer::testerPresent; break;
    default: return negative(sid, kServiceNotSupported);
    }
    if (sid == 0x27 && config_.securityLevels.empty()) return negative(sid, kServiceNotSupported);
    const auto sessions = config_.serviceSessions.find(sid);
    if (sessions != config_.serviceSessions.end() && !allowed(sessions->second))
        return negative(sid, kServiceNotSupportedInSession);
    if (sid == 0x27) return securityAccess(request, now);
    return (this->*handler)(request);
}

EcuServer::Answer EcuServer::sessionControl(const std::vector<uint8_t>& request) {
    if (request.size() < 2) return negative(0x10, kIncorrectLength);
    const uint8_t sub = request[1] & 0x7F;
    const auto session = std::find_if(config_.sessions.begin(), config_.sessions.end(),
                                      [&](const EcuSession& s) { return s.id == sub; });
    if (session == config_.sessions.end()) return negative(0x10, kSubFunctionNotSupported);
    if (!allowed(session->from)) return negative(0x10, kSubFunctionNotSupportedInSession);
    if (request.size() != 2) return negative(0x10, kIncorrectLength);
    // Every session change locks the ECU again and ends the routines of the old session.
    backToDefault();
    session_ = sub;
    std::vector<uint8_t> out = {0x50, sub};
    putU16(out, session->p2Ms);
    putU16(out, session->p2StarMs / 10);
    return {out, (request[1] & kSuppressBit) != 0};
}

EcuServer::Answer EcuServer::ecuReset(const std::vector<uint8_t>& request) {
    if (request.size() < 2) return negative(0x11, kIncorrectLength);
    const uint8_t sub = request[1] & 0x7F;
    const auto reset = std::find_if(config_.resets.begin(), config_.resets.end(),
                                    [&](const EcuReset& r) { return r.type == sub; });
    if (reset == config_.resets.end()) return negative(0x11, kSubFunctionNotSupported);
    if (!allowed(reset->sessions)) return negative(0x11, kSubFunctionNotSupportedInSession);
    if (request.size() != 2) return negative(0x11, kIncorrectLength);
    std::vector<uint8_t> out = {0x51, sub};
    if (reset->powerDownTime) out.push_back(*reset->powerDownTime);
    backToDefault();
    return {out, (request[1] & kSuppressBit) != 0};
}

EcuServer::Answer EcuServer::securityAccess(const std::vector<uint8_t>& request,
                                            std::chrono::microseconds now) {
    if (request.size() < 2) return negative(0x27, kIncorrectLength);
    const uint8_t sub = request[1] & 0x7F;
    const bool requestSeed = (sub & 1) != 0;
    const uint8_t levelId = requestSeed ? sub : static_cast<uint8_t>(sub - 1);
    const auto level = std::find_if(config_.securityLevels.begin(), config_.securityLevels.end(),
                                    [&](const EcuSecurityLevel& l) { return sub != 0 && l.level == levelId; });
    if (level == config_.securityLevels.end()) return negative(0x27, kSubFunctionNotSupported);
    if (!allowed(level->sessions)) return negative(0x27, kSubFunctionNotSupportedInSession);
    const bool suppress = (request[1] & kSuppressBit) != 0;
    if (locked_ && now >= lockedUntil_) {
        locked_ = false;
        failedKeys_ = 0;
    }

    if (requestSeed) {
        if (locked_) return negative(0x27, kDelayNotExpired);
        std::vector<uint8_t> out = {0x67, sub};
        if (unlockedLevel_ == level->level) {
            // Already unlocked: a zero seed says so, and no key is expected.
            out.resize(2 + level->seed.size(), 0x00);
            seedLevel_ = 0;
        } else {
            out.insert(out.end(), level->seed.begin(), level->seed.end());
            seedLevel_ = level->level;
        }
        return {out, suppress};
    }

    if (request.size() < 3) return negative(0x27, kIncorrectLength);
    if (seedLevel_ != level->level) return negative(0x27, kRequestSequenceError);
    if (request.size() - 2 != level->seed.size()) return negative(0x27, kIncorrectLength);
    seedLevel_ = 0;  // one key per seed, right or wrong
    bool match = true;
    for (size_t i = 0; i < level->seed.size(); ++i)
        match = match && request[2 + i] == static_cast<uint8_t>(level->seed[i] ^ level->mask[i]);
    if (!match) {
        if (++failedKeys_ >= config_.maxKeyAttempts) {
            locked_ = true;
            lockedUntil_ = now + ms(config_.keyDelayMs);
            return negative(0x27, kExceededAttempts);
        }
        return negative(0x27, kInvalidKey);
    }
    failedKeys_ = 0;
    unlockedLevel_ = level->level;
    return {{0x67, sub}, suppress};
}

EcuServer::Answer EcuServer::testerPresent(const std::vector<uint8_t>& request) {
    if (request.size() < 2) return negative(0x3E, kIncorrectLength);
    if ((request[1] & 0x7F) != 0x00) return negative(0x3E, kSubFunctionNotSupported);
    if (request.size() != 2) return negative(0x3E, kIncorrectLength);
    return {{0x7E, 0x00}, (request[1] & kSuppressBit) != 0};
}

EcuServer::Answer EcuServer::readDids(const std::vector<uint8_t>& request) {
    if (request.size() < 3 || (request.size() - 1) % 2 != 0) return negative(0x22, kIncorrectLength);
    const size_t count = (request.size() - 1) / 2;
    if (count > config_.maxReadDids) return negative(0x22, kIncorrectLength);
    // Identifiers this ECU does not offer in this session are left out; only when none is left
    // is the request out of range.
    std::vector<const EcuDid*> found;
    for (size_t i = 0; i < count; ++i) {
        const EcuDid* did = findDid(getU16(request, 1 + 2 * i));
        if (did != nullptr && did->readable && allowed(did->readSessions)) found.push_back(did);
    }
    if (found.empty()) return negative(0x22, kRequestOutOfRange);
    std::optional<unsigned> pending;
    for (const EcuDid* did : found) {
        if (did->readSecurity != 0 && unlockedLevel_ != did->readSecurity)
            return negative(0x22, kSecurityAccessDenied);
        if (!did->conditionsCorrect) return negative(0x22, kConditionsNotCorrect);
        if (did->pending) pending = std::max(pending.value_or(0), *did->pending);
    }
    std::vector<uint8_t> out = {0x62};
    for (const EcuDid* did : found) {
        if (out.size() + 2 + did->value.size() > config_.maxResponseLength)
            return negative(0x22, kResponseTooLong);
        putU16(out, did->id);
        out.insert(out.end(), did->value.begin(), did->value.end());
    }
    return {out, false, pending};
}

EcuServer::Answer EcuServer::writeDid(const std::vector<uint8_t>& request) {
    if (request.size() < 4) return negative(0x2E, kIncorrectLength);
    const uint16_t id = getU16(request, 1);
    EcuDid* did = findDid(id);
    if (did == nullptr || !did->writable || !allowed(did->writeSessions))
        return negative(0x2E, kRequestOutOfRange);
    if (did->writeSecurity != 0 && unlockedLevel_ != did->writeSecurity)
        return negative(0x2E, kSecurityAccessDenied);
    if (request.size() - 3 != did->value.size()) return negative(0x2E, kIncorrectLength);
    if (!did->conditionsCorrect) return negative(0x2E, kConditionsNotCorrect);
    did->value.assign(request.begin() + 3, request.end());
    return {{0x6E, request[1], request[2]}, false, did->pending};
}

EcuServer::Answer EcuServer::readDtcs(const std::vector<uint8_t>& request) {
    if (request.size() < 2) return negative(0x19, kIncorrectLength);
    // Reading trouble codes has no suppressed form: bit 7 is part of the report type.
    const uint8_t sub = request[1];
    const uint8_t available = config_.dtcAvailabilityMask;
    if (sub != 0x01 && sub != 0x02 && sub != 0x0A) return negative(0x19, kSubFunctionNotSupported);
    if (request.size() != (sub == 0x0A ? 2u : 3u)) return negative(0x19, kIncorrectLength);
    // 0x0A reports every supported code whatever its status.
    const auto matches = [&](const EcuDtc& dtc) {
        return sub == 0x0A || (dtc.status & available & request[2]) != 0;
    };
    std::vector<uint8_t> out = {0x59, sub, available};
    if (sub == 0x01) {
        out.push_back(config_.dtcFormat);
        putU16(out, static_cast<uint32_t>(std::count_if(config_.dtcs.begin(), config_.dtcs.end(), matches)));
        return out;
    }
    for (const EcuDtc& dtc : config_.dtcs) {
        if (!matches(dtc)) continue;
        if (out.size() + 4 > config_.maxResponseLength) return negative(0x19, kResponseTooLong);
        out.push_back(static_cast<uint8_t>(dtc.code >> 16));
        putU16(out, dtc.code & 0xFFFF);
        out.push_back(dtc.status & available);
    }
    return out;
}

EcuServer::Answer EcuServer::clearDtcs(const std::vector<uint8_t>& request) {
    if (request.size() != 4) return negative(0x14, kIncorrectLength);
    const uint32_t group = static_cast<uint32_t>(request[1]) << 16 | getU16(request, 2);
    // Cleared codes stay supported with every status bit down.
    bool cleared = false;
    for (EcuDtc& dtc : config_.dtcs) {
        if (group == 0xFFFFFF || dtc.code == group) {
            dtc.status = 0x00;
            cleared = true;
        }
    }
    if (!cleared && group != 0xFFFFFF) return negative(0x14, kRequestOutOfRange);
    return {{0x54}};
}

EcuServer::Answer EcuServer::routineControl(const std::vector<uint8_t>& request) {
    if (request.size() < 4) return negative(0x31, kIncorrectLength);
    const uint8_t sub = request[1] & 0x7F;
    if (sub < 0x01 || sub > 0x03) return negative(0x31, kSubFunctionNotSupported);
    const uint16_t id = getU16(request, 2);
    const auto routine = std::find_if(config_.routines.begin(), config_.routines.end(),
                                      [&](const EcuRoutine& r) { return r.id == id; });
    if (routine == config_.routines.end() || !allowed(routine->sessions))
        return negative(0x31, kRequestOutOfRange);
    if (routine->security != 0 && unlockedLevel_ != routine->security)
        return negative(0x31, kSecurityAccessDenied);
    std::vector<uint8_t> out = {0x71, sub, request[2], request[3]};
    const auto state = routineRunning_.find(id);
    const std::vector<uint8_t>* record = nullptr;
    if (sub == 0x01) {
        if (routine->optionLength && request.size() - 4 != *routine->optionLength)
            return negative(0x31, kIncorrectLength);
        if (!routine->conditionsCorrect) return negative(0x31, kConditionsNotCorrect);
        routineRunning_[id] = true;
        record = &routine->startResult;
    } else if (sub == 0x02) {
        if (state == routineRunning_.end() || !state->second) return negative(0x31, kRequestSequenceError);
        if (request.size() != 4) return negative(0x31, kIncorrectLength);
        state->second = false;
        record = &routine->stopResult;
    } else {
        if (state == routineRunning_.end()) return negative(0x31, kRequestSequenceError);
        if (request.size() != 4) return negative(0x31, kIncorrectLength);
        record = &routine->results;
    }
    out.insert(out.end(), record->begin(), record->end());
    return {out, (request[1] & kSuppressBit) != 0, routine->pending};
}

}  // namespace ecu
}  // namespace hostbridge
