#ifndef LINXIPC_HOST_ENDPOINT_ENDPOINT_H
#define LINXIPC_HOST_ENDPOINT_ENDPOINT_H

#include <memory>
#include <unordered_set>

#include "host/endpoint/chores.h"
#include "host/endpoint/hunts.h"
#include "host/endpoint/inbox.h"
#include "host/endpoint/outbox.h"
#include "host/endpoint/ownership.h"
#include "host/endpoint/peers.h"
#include "host/endpoint/signals.h"
#include "host/endpoint/supervision.h"
#include "platform/linx.h"

namespace linx {

/// One endpoint, as linx.cpp gives it out behind a handle: the fifteen operations, put together from its parts.
/// Operations return what platform/linx.h says of them, errno set on failure; arguments that are addresses have been
/// checked for null. Belongs to one thread at a time.
class Endpoint {
public:
    /// Opens an endpoint in the domain of the environment. Null with errno.
    static std::unique_ptr<Endpoint> open(const Name& name, uint32_t options = 0);

    ~Endpoint();
    Endpoint(const Endpoint&) = delete;
    Endpoint& operator=(const Endpoint&) = delete;

    /// Begins an operation, and ends it. False with errno when there can be none: EINVAL when a thread is inside one
    /// already, ECHILD when the endpoint is another process's.
    bool enter() { return ownership_.enterAtOnce() || enterInDoubt(); }
    void exit() { ownership_.exit(); }

    using Departure = Ownership::Departure;

    /// Begins the last operation, before the end of this object. errno: EINVAL if it is refused, ECHILD if the
    /// endpoint stays.
    Departure leave();

    int descriptor();

    LinxSignal* allocate(uint32_t size, uint32_t number);
    int free(LinxSignal** signal);
    int send(LinxSignal** signal, Spid to);
    Spid sender(LinxSignal** signal) const;

    /// Waits until `milliseconds` have passed, or without limit if it is null.
    int receive(LinxSignal** signal, const uint32_t* milliseconds, const uint32_t* selection);

    using Posted = Outbox::Posted;

    // The fast paths of these five (fast_path.h). They enter and exit by themselves. Where one does not apply it
    // changes nothing and returns null, false, `refused` or 0. Addresses must not be null.
    LinxSignal* allocateAtOnce(uint32_t size, uint32_t number);
    bool freeAtOnce(LinxSignal** signal);
    Posted sendAtOnce(LinxSignal** signal, Spid to);
    bool senderAtOnce(const LinxSignal* signal, Spid& sender) const;
    int receiveAtOnce(LinxSignal** signal, const uint32_t* selection);

    /// Does what is left to do of a send, and exits. Returns its result.
    int finishSend(Posted posted);

    int hunt(const Name& name, LinxSignal** signal);

    /// Frees the signal of a call that failed before it came to this class; errno stays. Returns -1.
    int forgo(LinxSignal** signal);

    LinxRef attach(LinxSignal** notice, Spid spid);

    char* nameOf(Spid spid);
    int freeName(char** name);

    bool isAway(const LinxSignal* signal, Spid from) const;

    LinxRef requestTimeout(uint32_t milliseconds, LinxSignal** signal);
    int cancelTimeout(LinxRef* reference);

private:
    /// What a new endpoint is to be.
    struct Opening {
        const Name& name;
        uint32_t options;
        Maker maker;
        SpinBudget budget;
        bool isRecorded;
    };

    /// Takes over the two descriptors.
    Endpoint(std::shared_ptr<Domain> domain, Spid spid, ScopedDescriptor& epoll, ScopedDescriptor& doorbell,
             const Opening& opening);

    static std::unique_ptr<Endpoint> openIn(const std::shared_ptr<Domain>& domain, const Name& name,
                                            uint32_t options);
    static std::unique_ptr<Endpoint> openLocked(const DomainLock& lock, const std::shared_ptr<Domain>& domain,
                                                ScopedDescriptor& epoll, const Opening& opening);

    bool enterInDoubt();
    void letGo();
    void leaveDomain();
    void end();
    bool endInside();

    BlockRef takeOver(LinxSignal** signal, uint32_t defaultNumber);
    bool makeRoom();
    bool makeRoomForSignal();
    LinxRef nextReference();

    Inbox::Wait await(const uint32_t* milliseconds, const uint32_t* selection, BlockRef& block);
    void noticeEvents();
    void adoptLogMask();
    /// After a send to a peer: it may have been found dead, having sent something, or could not be rung, and then a
    /// poll loop has to come back to try again.
    bool isReadinessInDoubtAfterSend() const { return peers_.mayHaveLeftMail() || chores_.owesRings(); }
    void updateReadiness() {
        if (inbox_.isReadinessInDoubt()) changeReadiness();
    }
    void changeReadiness();

    const std::shared_ptr<Domain> domain_;
    const std::unique_ptr<EventRing> unrecorded_;  ///< takes the events that nobody is to see
    const Identity self_;
    ScopedDescriptor epoll_;
    int givenDescriptor_ = -1;  ///< the user's duplicate of the epoll set

    Ownership ownership_;
    Signals signals_;
    Peers peers_;
    Inbox inbox_;
    Chores chores_;
    Outbox outbox_;
    Hunts hunts_;
    Supervision supervision_;

    LinxRef lastReference_ = 0;
    uint32_t logMask_;  ///< as the slot says it, as far as this process knows
    std::unordered_set<char*> names_;
};

}  // namespace linx

#endif
