#pragma once
// What a simulated ECU is: its addresses, sessions, security levels, data identifiers, trouble
// codes and routines, read from a JSON description. Every field a hostile file could get wrong
// is checked on load; the server trusts what it gets from here.

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "host/hostbridge_export.h"

namespace hostbridge {
namespace ecu {

// Largest data identifier value the file may give.
constexpr size_t kMaxDidLength = 4096;

struct EcuAddressing {
    uint32_t physicalId = 0x7E0;    // requests to this ECU alone
    uint32_t functionalId = 0x7DF;  // requests to every ECU
    uint32_t responseId = 0x7E8;
    bool extendedIds = false;  // 29-bit identifiers
    std::optional<uint8_t> nAe;  // address extension: first byte of every frame
    uint8_t fill = 0xCC;         // padding of short frames
    uint8_t channel = 0;
    bool fd = false;
    // What the ECU asks for in its flow control frames as a receiver. STmin is the raw byte:
    // 0x00-0x7F milliseconds, 0xF1-0xF9 100-900 microseconds.
    uint8_t blockSize = 0;
    uint8_t stMin = 0;
};

// Sets of sessions: empty means every session.
using SessionSet = std::vector<uint8_t>;

struct EcuSession {
    uint8_t id = 0;
    uint16_t p2Ms = 50;
    uint32_t p2StarMs = 5000;  // a multiple of 10: the response carries it in 10 ms units
    SessionSet from;           // sessions it may be entered from
};

struct EcuReset {
    uint8_t type = 0;
    SessionSet sessions;
    std::optional<uint8_t> powerDownTime;  // type 0x04 carries it in the response
};

struct EcuSecurityLevel {
    uint8_t level = 0;  // the odd requestSeed sub-function; sendKey is level + 1
    std::vector<uint8_t> seed;
    std::vector<uint8_t> mask;  // key = seed XOR mask, byte by byte
    SessionSet sessions;
};

struct EcuDid {
    uint16_t id = 0;
    std::vector<uint8_t> value;  // exactly the identifier's length
    bool readable = true;
    bool writable = false;
    SessionSet readSessions;
    SessionSet writeSessions;
    uint8_t readSecurity = 0;  // security level that must be unlocked, 0 for none
    uint8_t writeSecurity = 0;
    bool conditionsCorrect = true;  // false: requests get 0x22
    std::optional<unsigned> pending;  // overrides the ECU's count of 0x78 answers
};

struct EcuDtc {
    uint32_t code = 0;  // 24 bits
    uint8_t status = 0;
};

struct EcuRoutine {
    uint16_t id = 0;
    SessionSet sessions;
    uint8_t security = 0;
    std::vector<uint8_t> startResult;
    std::vector<uint8_t> stopResult;
    std::vector<uint8_t> results;
    std::optional<size_t> optionLength;  // exact length of the start option record
    bool conditionsCorrect = true;
    std::optional<unsigned> pending;
};

struct EcuConfig {
    std::string name;
    EcuAddressing addressing;
    uint32_t s3Ms = 5000;            // non-default session falls back after this long idle
    uint32_t responseDelayMs = 0;    // before the first answer to a request
    unsigned pendingCount = 0;       // 0x78 answers before each final reply
    uint32_t pendingIntervalMs = 0;  // between two of them, and before the final reply
    size_t maxResponseLength = 4095;
    unsigned maxReadDids = 16;  // identifiers in one 0x22 request
    std::vector<EcuSession> sessions;
    std::map<uint8_t, SessionSet> serviceSessions;  // service -> sessions it is allowed in
    std::vector<EcuReset> resets;
    std::vector<EcuSecurityLevel> securityLevels;
    unsigned maxKeyAttempts = 3;
    uint32_t keyDelayMs = 10000;  // locked after too many invalid keys
    std::vector<EcuDid> dids;
    uint8_t dtcAvailabilityMask = 0xFF;
    uint8_t dtcFormat = 0x01;
    std::vector<EcuDtc> dtcs;
    std::vector<EcuRoutine> routines;
};

// Parses a description; `fileName` only names the source in errors. On failure returns false
// and sets `error` to "FILE: KEY: problem" (or "FILE: line N: ..." for broken JSON).
HOSTBRIDGE_API bool parseEcuConfig(const std::string& text, const std::string& fileName,
                                   EcuConfig& config, std::string& error);
// Reads and parses a file.
HOSTBRIDGE_API bool loadEcuConfig(const std::string& path, EcuConfig& config, std::string& error);

}  // namespace ecu
}  // namespace hostbridge
