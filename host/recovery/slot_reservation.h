#ifndef LINXIPC_HOST_RECOVERY_SLOT_RESERVATION_H
#define LINXIPC_HOST_RECOVERY_SLOT_RESERVATION_H

#include "host/arena/name_table.h"
#include "host/recovery/domain_lock.h"

namespace linx {

/// A slot with its doorbell for an endpoint that is being opened, which nobody else looks at yet. Unless the endpoint
/// is opened in it, both are given back when the reservation goes. All of it happens under one domain lock.
class SlotReservation {
public:
    /// Reserves a slot for the name, which the process `maker` opens. It is empty, with errno, when there is none: EADDRINUSE when an endpoint of the
    /// name lives, ENOSPC, ENOMEM, or why the doorbell cannot be made.
    SlotReservation(const DomainLock& lock, const Name& name, uint32_t options, const Maker& maker);
    ~SlotReservation();
    SlotReservation(const SlotReservation&) = delete;
    SlotReservation& operator=(const SlotReservation&) = delete;

    explicit operator bool() const { return isReady_; }
    Spid spid() const { return spid_; }
    ScopedDescriptor& doorbell() { return doorbell_; }

    /// Opens the endpoint: from now on others find it by its name, and the slot is its own.
    void commit();

private:
    bool makeWay(const Name& name) const;
    bool removeLeftover(SlotIndex index) const;
    SlotIndex reserveSlot() const;
    Slot& slot() const { return lock_.arena().slot(indexOf(spid_)); }

    const DomainLock& lock_;
    Spid spid_ = Spid::none;                 ///< none when no slot was taken
    LifeWord before_ = LifeWord::neverUsed;  ///< the slot's life before
    bool isReady_ = false;                   ///< with doorbell and name
    bool isOpened_ = false;
    ScopedDescriptor doorbell_;
};

}  // namespace linx

#endif
