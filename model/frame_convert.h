#pragma once
// Between the host's frame record and the record applets see.

#include "host/sdk_receiver.h"
#include "model/keln_types.h"

namespace ruvo {

class FrameConverter {
public:
    static FrameConverter& instance();
    // Leaves `out` as it was for a null or non-CAN message; the tail of FData is not cleared.
    void toKelnCan(const CanPackage& package, _KelnCan& out) const;
    // A new host message from the record, stamped with the present wall-clock time.
    CanPackage toPackage(const _KelnCan& frame) const;
    // The 29-bit identifier of a CAN message, 0 for any other message.
    static u64 frameIdOf(const CanPackage& package);

private:
    FrameConverter() = default;
};

}  // namespace ruvo
