// The workstation's default diagnostic transport: ISO-TP on the virtual bus, from the record.

#include <algorithm>

#include "host/can_dlc.h"
#include "host/isotp/isotp_link.h"
#include "host/uds/uds_host.h"

namespace hostuds {

namespace {

uint8_t lengthOfDlc(uint8_t dlc) {
    return hostbridge::kDlcLengths[dlc & 0x0F];
}

}  // namespace

TransportFactory isoTpTransportFactory() {
    return [](const diagnosis::diagnosis_service_s& service) -> std::unique_ptr<hostbridge::MessageTransport> {
        const diagnosis::DoCan& d = service.uds.protocol.docan;
        const diagnosis::CANBusCommItems& items = d.can_items;
        hostbridge::IsoTpLinkConfig c;
        c.role = hostbridge::IsoTpLinkConfig::Role::Tester;
        c.channel = service.appconfig.channel;
        hostbridge::IsoTpConfig& p = c.protocol;
        p.tx = {d.physical_address & 0x1FFFFFFFu, items.physical_address_ext};
        p.rx = {d.response_address & 0x1FFFFFFFu, items.response_address_ext};
        p.hasFunctionalTx = true;
        p.functionalTx = {d.functional_address & 0x1FFFFFFFu, items.functional_address_ext};
        if (d.N_AE != 0) {
            p.extendedAddressing = true;
            p.txAddressExtension = d.N_AE;
            p.rxAddressExtension = d.N_AE;
        }
        p.padding = true;
        p.fill = d.fill;
        if ((items.fd_max_dlc & 0x0F) > 8) {
            p.fd = true;
            p.fdLength = lengthOfDlc(items.fd_max_dlc);
            p.brs = items.fd_en_brs;
        }
        p.blockSize = static_cast<uint8_t>(std::min<uint32_t>(items.send_block_size, 0xFF));
        p.stMin = static_cast<uint8_t>(std::min<uint32_t>(items.receive_frame_interval, 0xFF));
        if (items.en_custom_send_frame_interval) {
            p.minSendGap = std::chrono::milliseconds(std::min<uint32_t>(items.send_frame_interval, 10000));
        }
        if (items.max_len != 0) p.maxLength = items.max_len;
        return std::make_unique<hostbridge::IsoTpLink>(c);
    };
}

}  // namespace hostuds
