#pragma once
// The host's diagnostic records. The library hands its own service record to the uds:: calls
// as it is, so diagnosis::diagnosis_service_s must match it byte for byte: the asserts at the
// end pin every size and offset that matters.

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "host/hostbridge_export.h"

// An owned byte buffer. Empty: every field zero and `empty` set. The buffer comes from new[]
// and goes with delete[], so a caller may fill `data` with a new[] copy of its own.
struct HOSTBRIDGE_API BigMessageData {
    // Longest buffer assign gives out: a length field from the bus is not trusted beyond it.
    static constexpr uint32_t kMaxLen = 16u * 1024u * 1024u;

    uint64_t reserved = 0;
    uint32_t len = 0;
    uint8_t* data = nullptr;
    uint8_t empty = 1;

    BigMessageData() = default;
    // A copy of `length` bytes of `source` (zeroed bytes for a null source).
    BigMessageData(const void* source, uint32_t length);
    BigMessageData(const BigMessageData& other);
    BigMessageData(BigMessageData&& other) noexcept;
    BigMessageData& operator=(const BigMessageData& other);
    BigMessageData& operator=(BigMessageData&& other) noexcept;
    ~BigMessageData();

    // Frees the old buffer, allocates `length` bytes and copies them from `source` if both are
    // given; clears `empty`. 0, or -2 when the buffer can't be had (the record is then empty).
    int assign(const void* source, uint32_t length);
    // Back to empty.
    void clear();
};

// The same with the null target the C-style callers can pass: -1.
HOSTBRIDGE_API int AssignBigMessageData(BigMessageData* target, const void* source, uint32_t length);

// Result of a diagnostic exchange: `status` 0 is success (see hostuds::UdsStatus), `message`
// the response as received, SID included, also for a negative response.
struct HOSTBRIDGE_API UDSProcessResult {
    uint8_t status = 0;
    BigMessageData message;
};

namespace diagnosis {

enum protocol_e : int32_t { PROTOCOL_DoCAN = 0, PROTOCOL_DoIP = 1, PROTOCOL_DoLIN = 2 };

// CAN transport settings of a diagnostic link.
struct CANBusCommItems {
    bool physical_address_ext;
    bool functional_address_ext;
    bool response_address_ext;
    bool en_custom_send_frame_interval;
    bool fd_en_brs;
    uint16_t max_len;
    uint32_t receive_frame_interval;
    uint32_t send_frame_interval;
    uint32_t send_block_size;
    uint32_t fc_frame_after_interval;
    uint8_t fd_max_dlc;
    uint8_t fd_fill;
    uint8_t tx_dlc;
    uint32_t reserved[10];
};

// The CAN part of the service record: addresses, padding byte and extended address N_AE.
struct DoCan {
    uint8_t virutal_channel;
    uint8_t use_fun_addr;
    uint8_t diagnose_type;
    uint32_t physical_address;
    uint8_t physical_address_type;
    uint32_t functional_address;
    uint8_t functional_address_type;
    uint32_t response_address;
    uint8_t fill;
    uint8_t N_AE;
    CANBusCommItems can_items;

    DoCan() { std::memset(static_cast<void*>(this), 0, sizeof(*this)); }
};

// DoIP is not spoken here; the arm only keeps the record's size.
struct DoIP {
    uint32_t words[50];
};

struct uds_s {
    protocol_e ptype;
    uint32_t p2time;
    uint32_t p2extend_time;
    union Protocol_u {
        DoCan docan;
        DoIP doip;
        Protocol_u() { std::memset(static_cast<void*>(this), 0, sizeof(*this)); }
    } protocol;
};

struct app_config_s {
    uint8_t channel;
};

struct diagnosis_service_s {
    app_config_s appconfig;
    uds_s uds;

    diagnosis_service_s() : appconfig{0}, uds{} {}
};

}  // namespace diagnosis

struct UdsEcuDiagnoseId {
    uint32_t PyhReqID;
    uint32_t ResponseID;
    uint32_t FunReqID;
};

// Which ECUs answer on a virtual channel: at most kMaxEcus entries.
struct UDSMappingInfo {
    static constexpr uint16_t kMaxEcus = 50;
    uint8_t virutal_channel;
    uint16_t ECUCount;
    UdsEcuDiagnoseId addr[kMaxEcus];
};

// Parameters of a box channel's diagnostic link. -1 in a 32-bit field: keep the box's value.
// The parameter ids the library changes by position: 9 writes `st_min`, 10 `block_size`.
struct UdsVciParams {
    uint8_t channel;
    int32_t can_bitrate;
    int32_t canfd_bitrate;
    int32_t n_as_ms;
    int32_t n_bs_ms;
    int32_t n_cr_ms;
    int32_t p2_ms;
    int32_t p2extend_ms;
    int32_t block_size;
    int32_t st_min;
};

static_assert(sizeof(diagnosis::CANBusCommItems) == 68, "CANBusCommItems layout");
static_assert(offsetof(diagnosis::CANBusCommItems, max_len) == 6 &&
                  offsetof(diagnosis::CANBusCommItems, receive_frame_interval) == 8 &&
                  offsetof(diagnosis::CANBusCommItems, fd_max_dlc) == 24 &&
                  offsetof(diagnosis::CANBusCommItems, reserved) == 28,
              "CANBusCommItems field order");
static_assert(sizeof(diagnosis::DoCan) == 96, "DoCan layout");
static_assert(offsetof(diagnosis::DoCan, physical_address) == 4 &&
                  offsetof(diagnosis::DoCan, physical_address_type) == 8 &&
                  offsetof(diagnosis::DoCan, functional_address) == 12 &&
                  offsetof(diagnosis::DoCan, functional_address_type) == 16 &&
                  offsetof(diagnosis::DoCan, response_address) == 20 &&
                  offsetof(diagnosis::DoCan, fill) == 24 && offsetof(diagnosis::DoCan, N_AE) == 25 &&
                  offsetof(diagnosis::DoCan, can_items) == 28,
              "DoCan field order");
static_assert(sizeof(diagnosis::uds_s) == 212, "uds_s layout");
static_assert(offsetof(diagnosis::uds_s, p2time) == 4 && offsetof(diagnosis::uds_s, p2extend_time) == 8 &&
                  offsetof(diagnosis::uds_s, protocol) == 12,
              "uds_s field order");
static_assert(sizeof(diagnosis::diagnosis_service_s) == 216, "diagnosis_service_s layout");
static_assert(offsetof(diagnosis::diagnosis_service_s, uds) == 4, "diagnosis_service_s field order");
static_assert(sizeof(UDSMappingInfo) == 604 && offsetof(UDSMappingInfo, ECUCount) == 2 &&
                  offsetof(UDSMappingInfo, addr) == 4,
              "UDSMappingInfo layout");
