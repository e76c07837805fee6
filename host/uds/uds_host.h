#pragma once
// The workstation's diagnostic calls (uds::) and their configuration (hostuds::).
//
// Each service record gets a transport from the factory, kept for the next calls on the same
// channel, addresses and link settings. Statuses are those of hostuds::UdsStatus; a negative
// response gives its NRC. Time limits come from the record: p2time for the first response,
// p2extend_time after each 0x78 (0 in either: 50 ms and 5000 ms).

#include <cstddef>
#include <functional>
#include <memory>

#include "host/hostbridge_export.h"
#include "host/isotp/message_transport.h"
#include "host/uds/uds_client.h"
#include "host/uds/uds_records.h"

namespace uds {

// Sends `message` to the record's ECU, functionally when use_fun_addr is set; does not wait.
// 0, or a status: 1 for a null or empty argument or a protocol other than DoCAN, 2 when it
// could not be sent.
HOSTBRIDGE_API int SendUDSMessage(diagnosis::diagnosis_service_s* service, BigMessageData* message);
// Waits for a response of the service that `expected` names in its first byte: a response SID
// (0x62) or the request SID (0x22). An empty or null `expected`, or 0x7F: any service. The
// rest of the pattern is not compared.
HOSTBRIDGE_API UDSProcessResult WaitForUDSMessage(diagnosis::diagnosis_service_s* service,
                                                  BigMessageData* expected);
// Sends `send` and waits for the response of its service; what was left queued on the link
// from earlier requests is discarded first. `expected` is not compared: a receive buffer
// handed in may hold anything. A request that suppresses its positive response (3E 80)
// succeeds with an empty message when no negative one comes within P2.
HOSTBRIDGE_API UDSProcessResult SendAndRecvUDSMessage(diagnosis::diagnosis_service_s* service,
                                                      BigMessageData* send, BigMessageData* expected);

// Whether cyclic sends to the ECU with this DoCan's physical, functional and response address
// may go on. Enabled until disabled.
HOSTBRIDGE_API void SetCycleTaskEnable(diagnosis::DoCan docan, bool enable);
HOSTBRIDGE_API bool GetCycleTaskEnable(diagnosis::DoCan docan);

// Publishes which ECUs answer on a virtual channel, replacing what was known for it.
// 0, or -1 for more than UDSMappingInfo::kMaxEcus entries (nothing is kept then).
HOSTBRIDGE_API int SetUDSMappingInfo(const UDSMappingInfo& info);

// Diagnostic link parameters of a box, per device and channel (params.channel selects it).
// Get fills every field but the channel from the store (defaults until set). Set writes every
// 32-bit field that is not -1. 0; -1 for a missing device or a value below -1; -2 for a device
// that does not take parameters.
HOSTBRIDGE_API int GetVCIParam(int device, UdsVciParams& params);
HOSTBRIDGE_API int SetVCIParam(int device, const UdsVciParams& params);

}  // namespace uds

namespace hostuds {

// Makes the transport for a service record (its channel, DoCan addresses and link settings).
// May return null or throw: the call then fails with status 2.
using TransportFactory =
    std::function<std::unique_ptr<hostbridge::MessageTransport>(const diagnosis::diagnosis_service_s&)>;

// Replaces the factory and drops every cached transport. Without one, calls give status 2.
// Until replaced, the factory is isoTpTransportFactory().
HOSTBRIDGE_API void setTransportFactory(TransportFactory factory);
// ISO-TP on the virtual bus, as the workstation's tester, set up from the record: channel
// appconfig.channel; requests to physical_address (functional_address when use_fun_addr),
// answers from response_address, 29-bit per can_items.*_address_ext; extended addressing with
// N_AE when it is not 0; frames padded with `fill`; CAN FD when can_items.fd_max_dlc is above 8
// (its length, bit rate switch per fd_en_brs); the flow control asks for send_block_size and
// receive_frame_interval (STmin byte); send_frame_interval (ms) is kept between frames when
// en_custom_send_frame_interval; max_len, when set, bounds a message.
HOSTBRIDGE_API TransportFactory isoTpTransportFactory();
// The clock of every wait; an empty one is std::chrono::steady_clock.
HOSTBRIDGE_API void setClock(Clock clock);
// 0x78 answers waited out per request before reporting 0x78 (100 by default).
HOSTBRIDGE_API void setMaxPending(unsigned count);
// Transports kept; at most kMaxCachedTransports, the least recently used goes first.
constexpr std::size_t kMaxCachedTransports = 64;
HOSTBRIDGE_API std::size_t cachedTransportCount();

// The mapping last published for a virtual channel; false if none.
HOSTBRIDGE_API bool udsMappingInfo(uint8_t virtualChannel, UDSMappingInfo& info);

enum class VciDeviceState { Available, Missing, ReadOnly };
// Every device index from 0 is Available unless set otherwise; negative indexes are Missing.
HOSTBRIDGE_API void setVciDeviceState(int device, VciDeviceState state);
// What Get answers for a channel nobody set (the channel field is ignored).
HOSTBRIDGE_API void setDefaultVciParams(const UdsVciParams& params);
HOSTBRIDGE_API UdsVciParams defaultVciParams();

// Back to the state at load: no factory, no transports, real clock, all cycles enabled, no
// mappings, default parameters.
HOSTBRIDGE_API void resetUdsState();

}  // namespace hostuds
