#pragma once
// The simulated workstation: a virtual CAN bus with channels, device mapping and measurement
// control. Like a real host, a send first offers the frame to every receiver's
// prePackageSend, then transmits it, then reports it to every receiver as a sent frame.

#include <functional>
#include <list>
#include <memory>
#include <vector>

#include "host/frame_kit.h"

enum NetWorkType : int32_t { NETWORK_CAN = 0, NETWORK_LIN = 1, NETWORK_ETH = 2 };
enum Priority : int32_t { PRIORITY_NORMAL = 0, PRIORITY_HIGH = 1 };

struct ChannelMapping {
    int deviceId;
    int channel;
    bool enabled;
};

namespace data_flow_interface {
// 0 when transmitted; -4 when the measurement is not running, -1 for a bad message.
HOSTBRIDGE_API int sendCan(NetWorkType network, int channel, std::shared_ptr<MsgHeaderBase> message,
                           Priority priority);
}  // namespace data_flow_interface

namespace device_info_interface {
HOSTBRIDGE_API std::vector<ChannelMapping> getDeviceMapping(NetWorkType network);
namespace vci_device {
// Rings the buzzer of one device: two tones, repeated. 0 when the device is in the CAN
// mapping, -1 (nothing rung) when it is not.
HOSTBRIDGE_API int setDevBuzz(int device, unsigned short firstHz, unsigned short firstTimeMs,
                              unsigned short secondHz, unsigned short secondTimeMs,
                              unsigned short reptCount);
}  // namespace vci_device
}  // namespace device_info_interface

namespace device_control_interface {
// Starts the devices and tells every receiver (onStartup), on the calling thread.
HOSTBRIDGE_API int startup(std::list<int> devices);
// The same, waiting for the devices; hasStartup tells whether they came up.
HOSTBRIDGE_API int startup_sync(std::list<int> devices);
HOSTBRIDGE_API int shutdown(std::list<int> devices);
HOSTBRIDGE_API int shutdown_async(std::list<int> devices);
HOSTBRIDGE_API bool hasStartup();
}  // namespace device_control_interface

namespace hostbridge {

// Delivers frames as received on the bus (direction 0) to every receiver in one batch.
HOSTBRIDGE_API void injectReceived(const std::vector<std::shared_ptr<MsgHeaderBase>>& frames);
// Builds a received CAN message.
HOSTBRIDGE_API std::shared_ptr<MsgHeaderBase> makeCanFrame(uint64_t timestampUs, int channel,
                                                           uint32_t id, bool extended, bool fd,
                                                           bool brs, const unsigned char* data,
                                                           int length, bool remote = false);
// Nodes on the virtual bus beside the workstation (a simulated ECU, a socketcand client). A node
// hears every frame on the bus but its own: what the workstation transmits and what the other
// nodes send. What it sends reaches the other nodes and, while the measurement runs, the
// workstation as a received frame. The listener runs on the sender's thread and gets a frame of
// its own to keep; it must not block, and must not send or detach from inside (queue instead).
using NodeListener = std::function<void(const std::shared_ptr<MsgHeaderBase>&)>;
HOSTBRIDGE_API int attachNode(NodeListener listener);
// After it returns the node's listener is not running and will not run again.
HOSTBRIDGE_API void detachNode(int node);
// 0 when the frame is on the bus; -1 for an unknown node or a frame that is not CAN. The other
// nodes hear it before this returns; the workstation's receivers get it on the host's delivery
// thread, in order, batched as it comes.
HOSTBRIDGE_API int nodeSend(int node, const std::shared_ptr<MsgHeaderBase>& frame);
// Returns when every frame nodes have sent so far has been delivered to the workstation.
HOSTBRIDGE_API void waitForNodeDeliveries();
// Returns when the batch being delivered right now, if any, is done (at once on the delivery
// thread itself).
HOSTBRIDGE_API void waitForDeliveryInProgress();
// A copy of a CAN frame, with a header and data of its own.
HOSTBRIDGE_API std::shared_ptr<MsgHeaderBase> copyCanFrame(const std::shared_ptr<MsgHeaderBase>& frame);

// The workstation's own listeners of received frames (its diagnostic client): called with every
// frame the receivers get as received; for injected frames after the receivers, for frames of
// nodes at once on the node's thread (before the delivery thread hands them to the receivers).
// A listener must only queue the frame.
using ReceiveListener = std::function<void(const std::shared_ptr<MsgHeaderBase>&)>;
HOSTBRIDGE_API int addReceiveListener(ReceiveListener listener);
HOSTBRIDGE_API void removeReceiveListener(int id);

// Called with every frame that goes out on the bus, after the pre-send receivers.
using TransmitListener = std::function<void(const std::shared_ptr<MsgHeaderBase>&)>;
HOSTBRIDGE_API int addTransmitListener(TransmitListener listener);
HOSTBRIDGE_API void removeTransmitListener(int id);
// Channel mapping of the simulated box: channels 0 .. count-1, all enabled. A frame's channel
// is one byte, so at most kMaxChannelCount; -1 for a count outside 0 .. kMaxChannelCount, which
// leaves the mapping as it was.
constexpr int kMaxChannelCount = 256;
HOSTBRIDGE_API int setChannelCount(int count);
// A mapping of its own for one network, as a workstation with several boxes has: which device
// serves which channel, and whether it is enabled. Replaces the count's mapping for that
// network until setChannelCount is called again. -1 (nothing changed) for a channel outside
// 0 .. kMaxChannelCount-1, a negative device or a channel mapped twice.
HOSTBRIDGE_API int setDeviceMapping(NetWorkType network, const std::vector<ChannelMapping>& mapping);
// Whether startup_sync brings the devices up (a missing box does not).
HOSTBRIDGE_API void setDevicesPresent(bool present);

// The buzzer requests the devices accepted, so a front end can ring a bell.
struct BuzzCall {
    int device;
    unsigned short firstHz, firstTimeMs, secondHz, secondTimeMs, reptCount;
};
// Called on the applet's thread for every accepted request; must not block.
using BuzzListener = std::function<void(const BuzzCall&)>;
HOSTBRIDGE_API int addBuzzListener(BuzzListener listener);
// After it returns the listener is not running and will not run again.
HOSTBRIDGE_API void removeBuzzListener(int id);
// The accepted requests so far, oldest first (the latest 256 are kept).
HOSTBRIDGE_API std::vector<BuzzCall> buzzCalls();
HOSTBRIDGE_API void clearBuzzCalls();

}  // namespace hostbridge
