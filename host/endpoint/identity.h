#ifndef LINXIPC_HOST_ENDPOINT_IDENTITY_H
#define LINXIPC_HOST_ENDPOINT_IDENTITY_H

#include "host/arena/domain.h"
#include "host/record/recorder.h"

namespace linx {

/// Who an endpoint is, for all of its parts. The domain outlives them.
struct Identity {
    const Domain& domain;
    const Spid spid;
    Slot& slot;
    Recorder record;

    const Arena& arena() const { return domain.arena(); }

    /// Whether the slot is still this endpoint's. One reaped by mistake, because its doorbell file was removed, must
    /// not touch what belongs to others by now.
    bool isStillOpen() const { return slot.life.loadRelaxed() == openAs(spid); }
};

}  // namespace linx

#endif
