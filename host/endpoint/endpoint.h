#ifndef LINXIPC_HOST_ENDPOINT_ENDPOINT_H
#define LINXIPC_HOST_ENDPOINT_ENDPOINT_H

#include <memory>
#include <unordered_set>

#include "host/arena/domain.h"
#include "host/arena/name_table.h"
#include "host/endpoint/looking_budget.h"
#include "host/endpoint/peers.h"
#include "host/endpoint/signal_queue.h"
#include "host/endpoint/timers.h"
#include "host/pool/pool.h"
#include "host/recovery/cold_section.h"
#include "platform/linx.h"

namespace linx {

/// One endpoint, as linx.cpp gives it out behind a handle. Operations return what platform/linx.h says of them, errno
/// set on failure; arguments that are addresses have been checked for null. Belongs to one thread at a time.
class Endpoint {
public:
    /// Opens an endpoint in the domain of the environment. Null with errno.
    static std::unique_ptr<Endpoint> open(const Name& name);

    ~Endpoint();
    Endpoint(const Endpoint&) = delete;
    Endpoint& operator=(const Endpoint&) = delete;

    /// Whether the endpoint belongs to this process. After a fork it goes to whichever of the two asks first.
    bool isOurs() { return isKnownToBeOurs() || claim(); }
    bool isKnownToBeOurs() const { return forksSeen_ == forkCount(); }

    /// Prepares for the end of this object and tells whether it may be had. A child that has only inherited the
    /// endpoint gives up its copy, and leaves the endpoint to its parent.
    bool leave();

    int descriptor();

    LinxSignal* allocate(uint32_t size, uint32_t number);
    int free(LinxSignal** signal);
    int send(LinxSignal** signal, Spid to);
    Spid sender(LinxSignal** signal) const;

    /// Waits until `milliseconds` have passed, or without limit if it is null.
    int receive(LinxSignal** signal, const uint32_t* milliseconds, const uint32_t* selection);

    int hunt(const Name& name, LinxSignal** signal);

    /// Frees the signal of a call that failed before it came to this class; errno stays. Returns -1.
    int forgo(LinxSignal** signal);

    LinxRef attach(LinxSignal** notice, Spid spid);

    char* nameOf(Spid spid);
    int freeName(char** name);

    LinxRef requestTimeout(uint32_t milliseconds, LinxSignal** signal);
    int cancelTimeout(LinxRef* reference);

private:
    /// A signal's block and where it lies.
    struct Held {
        Block* block;
        Ref ref;
        uint32_t sizeClass;
    };

    /// Takes over the two descriptors.
    Endpoint(std::shared_ptr<Domain> domain, Spid spid, ScopedDescriptor& epoll, ScopedDescriptor& bell);

    static bool openIn(const std::shared_ptr<Domain>& domain, const Name& name, std::unique_ptr<Endpoint>& endpoint);
    static Spid enter(const ColdSection& cold, const Name& name, ScopedDescriptor& bell);

    // Which signals are ours (signals.cpp).
    [[gnu::always_inline]] Held find(const LinxSignal* signal) const;
    [[gnu::noinline]] Held lookUp(const LinxSignal* signal) const;
    Held at(Ref ref) const;
    [[gnu::cold, gnu::noinline]] LinxSignal* allocateMakingRoom(uint32_t size, uint32_t number);
    bool takeOver(LinxSignal** signal, uint32_t defaultNumber, Held& held);
    void park(const Held& held, Spid sender);
    [[gnu::cold]] int queueOwn(const Held& held, Spid sender);
    bool supervise(Peer& peer, const Held& notice);
    void discard(const Held& held);
    void discard(Ref ref);

    // Sending (send.cpp).
    [[gnu::always_inline]] inline int push(const Held& held, Peer& peer);
    bool seemsAlive(Peer& peer);
    [[gnu::cold]] int sendToSelf(const Held& held);
    [[gnu::cold]] Peer* strangerAt(Spid spid);
    [[gnu::cold]] int bounce(const Held& held, Peer& peer);
    [[gnu::cold]] int refuse(const Held& held, int reason);
    [[gnu::cold]] Peer* peerFor(Spid spid);
    [[gnu::cold]] Peer* meet(Spid spid);

    // Receiving (receive.cpp).
    [[gnu::always_inline]] inline Held takeQueued(const uint32_t* selection);
    [[gnu::always_inline]] inline int handOut(const Held& held, LinxSignal** signal);
    [[gnu::always_inline]] inline bool isBusy() const;
    Held heldAt(SignalQueue::Signal signal) const {
        return {arena().rawBlock(signal.ref), signal.ref, signal.sizeClass};
    }
    [[gnu::noinline]] int receiveWithCare(LinxSignal** signal, const uint32_t* milliseconds,
                                          const uint32_t* selection);
    Held await(const uint32_t* milliseconds, const uint32_t* selection);
    void beginLooking();
    bool look(uint64_t deadline);
    bool giveWay(uint64_t wake);
    bool sleep(uint64_t deadline, bool mayWait);
    void noticeEvents();
    void handleEvents(int milliseconds);
    void takeMailbox();
    void queueTaken();
    bool takeMailboxIfRoom();
    bool queueChain();
    void fireTimeouts();
    void enqueue(Ref ref);
    void bury(uint32_t index);
    void settle() {
        if (queue_.empty() || looking_ || !byteIn_) settleAnew();
    }
    void settleAnew();
    void raiseByte();
    void silence();
    void greet(Spid sender);
    void ownStrays(Ref chain);
    void takeStrays(Ref chain);

    int keepHunt(const Name& name, const Held& held, bool& opened);

    bool claim();
    void disown();
    void leaveDomain();
    bool end();
    void giveUpHunts();

    const Arena& arena() const { return domain_->arena(); }
    Slot& slot() const { return slot_; }

    const std::shared_ptr<Domain> domain_;
    const Spid spid_;
    Slot& slot_;
    ScopedDescriptor epoll_;
    bool descriptorGiven_ = false;
    ScopedDescriptor bell_;

    uint32_t forksSeen_;
    uint32_t generation_;  ///< of the process that has the endpoint
    uint32_t forkRound_ = 0;
    bool disowned_ = false;

    Pool pool_;
    Peers peers_;
    Timers timers_;
    LookingBudget budget_;

    SignalQueue queue_;
    Ref takenChain_ = 0;    ///< taken from the mailbox, not in the queue yet
    bool looking_ = false;  ///< the attention word says that this endpoint looks
    bool byteIn_ = false;   ///< the bell is known to hold a byte
    bool deaf_ = false;     ///< nothing can be waited for: the user has closed the descriptor
    uint64_t eventsSeenAt_ = 0;
    uint32_t held_ = 0;              ///< signals that the user holds
    Held recent_ = {nullptr, 0, 0};  ///< given to the user last: most often the one that comes back next
    LinxRef lastReference_ = 0;
    std::unordered_set<char*> names_;
};

/// The signal that the user holds at this address; no block when none is there.
inline Endpoint::Held Endpoint::find(const LinxSignal* signal) const {
    // If the recent one is still this endpoint's, nobody has made another block of it. As numbers: the address may
    // have nothing to do with any block.
    const bool isRecent =
        reinterpret_cast<uintptr_t>(signal) - offsetof(Block, signal) == reinterpret_cast<uintptr_t>(recent_.block);
    const Held held = isRecent ? recent_ : lookUp(signal);
    // Relaxed: it was this endpoint that wrote it, if it is this endpoint's.
    const bool ours = held.block != nullptr && held.block->owner.loadRelaxed() == spid_;
    return ours ? held : Held{nullptr, 0, 0};
}

}  // namespace linx

#endif
