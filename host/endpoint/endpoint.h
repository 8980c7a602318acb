#ifndef LINXIPC_HOST_ENDPOINT_ENDPOINT_H
#define LINXIPC_HOST_ENDPOINT_ENDPOINT_H

#include <atomic>
#include <memory>
#include <unordered_set>
#include <vector>

#include "host/arena/domain.h"
#include "host/arena/name_table.h"
#include "host/endpoint/peers.h"
#include "host/endpoint/signal_queue.h"
#include "host/endpoint/spin_budget.h"
#include "host/endpoint/timers.h"
#include "host/pool/pool.h"
#include "host/recovery/domain_lock.h"
#include "host/system/forks.h"
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

    /// Begins an operation, and ends it. False with errno when there can be none: EINVAL when a thread is inside one
    /// already, ECHILD when the endpoint is another process's. After a fork it goes to whichever of the two enters
    /// first, unless the child was made while a thread was inside: nobody knows what state its copy is in.
    bool enter();
    void exit() { entry_.store(nextEntry_, std::memory_order_relaxed); }

    /// What linx_close finds.
    enum class Departure {
        refused,  ///< with errno: a thread is inside an operation
        stays,    ///< with errno ECHILD: the endpoint is another process's; the object goes
        leaves,  ///< the object's end is that of the endpoint; or, in a child that has only inherited it, of the copy
        forgotten  ///< the same for a copy that nobody may touch any more, not even to destroy it
    };

    /// Prepares for the end of this object.
    Departure leave();

    int descriptor();

    LinxSignal* allocate(uint32_t size, uint32_t number);
    int free(LinxSignal** signal);
    int send(LinxSignal** signal, Spid to);
    Spid sender(LinxSignal** signal) const;

    /// Waits until `milliseconds` have passed, or without limit if it is null.
    int receive(LinxSignal** signal, const uint32_t* milliseconds, const uint32_t* selection);

    /// What has become of a signal on its way to a peer.
    enum class Posted {
        done,
        refused,       ///< still here: the peer has ended, or wants an introduction, or it did not go at once
        wantsRing,     ///< the peer asks to be rung for it
        wantsReminder  ///< the peer is to be rung though it does not ask
    };

    // The same five as they go most of the time (fast_path.h). They enter by themselves, and exit, and leave
    // everything as it was where it does not go at once: null, false, `refused` and 0 say so. Addresses are not null.
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

    LinxRef requestTimeout(uint32_t milliseconds, LinxSignal** signal);
    int cancelTimeout(LinxRef* reference);

private:
    /// Takes over the two descriptors.
    Endpoint(std::shared_ptr<Domain> domain, Spid spid, ScopedDescriptor& epoll, ScopedDescriptor& doorbell);

    static std::unique_ptr<Endpoint> openIn(const std::shared_ptr<Domain>& domain, const Name& name);

    // Which signals are ours (signals.cpp).
    bool isRecent(const LinxSignal* signal) const;
    BlockRef find(const LinxSignal* signal) const;
    LinxSignal* give(BlockRef block, uint32_t size, uint32_t number);
    bool makeRoomForSignal();
    bool takeOver(LinxSignal** signal, uint32_t defaultNumber, BlockRef& block);
    void park(const BlockRef& block, Spid sender);
    int queueOwn(const BlockRef& block, Spid sender);
    bool supervise(Peer& peer, const BlockRef& notice);
    void discard(const BlockRef& block);
    void discard(Ref ref);

    // Sending (send.cpp).
    template <class Push>
    Posted post(const BlockRef& block, Peer& peer, Push push);
    int push(const BlockRef& block, Peer& peer);
    int finish(const BlockRef& block, Peer& peer, Posted posted);
    int ring(const BlockRef& block, Peer& peer);
    bool remind(Peer& peer);
    int sendToSelf(const BlockRef& block);
    int sendToStranger(const BlockRef& block, Spid to);
    int failSend(const BlockRef& block, Peer& peer);
    int returnToSender(const BlockRef& block, Peer& peer);
    int refuse(const BlockRef& block, int reason);

    // Peers, their ends, and what this endpoint owes others (company.cpp).
    Peer* connect(Spid spid);
    void readRecord(uint32_t record);
    void watchSender(Spid sender);
    bool hasEnded(const Peer& peer) const;
    void onPeerDeath(uint32_t index);
    bool onPeerDeathIfRoom(uint32_t index);
    void findEndedPeers();
    bool findEndedPeersIfRoom();
    void rememberDead(Spid dead);
    bool reapDead(DomainLock::Patience patience);
    bool reapNow(Spid dead);
    bool reapKnownDead();
    void oweRing();
    void ringOwed();
    bool hasChores() const { return owesOthers() || !dead_.empty() || pool_.isUnderPressure(); }
    bool owesOthers() const { return owesRings_ || owesAnswers_ || pool_.owesRelief(); }
    void doChores();

    // Receiving (receive.cpp).
    BlockRef takeQueued(const uint32_t* selection);
    int handOut(const BlockRef& block, LinxSignal** signal);
    bool isBusy() const;
    BlockRef blockAt(SignalQueue::Signal signal) const {
        return {arena().rawBlock(signal.ref), signal.ref, signal.sizeClass};
    }
    BlockRef await(const uint32_t* milliseconds, const uint32_t* selection);
    void markAwake();
    bool spin(uint64_t deadline);
    bool yieldOnce(uint64_t wake);
    bool sleep(uint64_t deadline, bool mayWait);
    void remindUnrung();
    uint64_t debtDue(uint64_t from) const;
    void noticeEvents();
    void handleEvents(int milliseconds);
    void takeMailbox();
    void queueTaken();
    bool takeMailboxIfRoom();
    bool queueChain();
    void fireTimeouts();
    [[gnu::cold, gnu::noinline]] bool watchTimer();
    void enqueue(Ref ref);
    void updateReadiness() {
        if (queue_.empty() || awake_ || !byteIn_) changeReadiness();
    }
    void changeReadiness();
    [[gnu::cold, gnu::noinline]] void callLater();
    bool makeRoom();
    void missRecords();
    void makeDescriptorTrue();
    void notifySelf();
    void drainDoorbell();
    void ownStrays(Ref chain);
    void takeStrays(Ref chain);

    int hunt(const Name& name, const BlockRef& block);
    int keepHunt(const Name& name, const BlockRef& block, bool& opened);

    LinxRef nextReference();

    bool enterAtOnce();
    bool enterInDoubt();
    bool occupy(uint32_t& stamp);
    bool claim(uint32_t stamp);
    void disown();
    void leaveDomain();
    void end();
    bool endInside();
    void giveUpHunts();
    bool isStillOpen() const;
    bool isMaker() const;

    const Arena& arena() const { return domain_->arena(); }
    Slot& slot() const { return slot_; }

    static Block noBlock;  ///< nobody's, and no signal's

    static constexpr uint32_t inside = forks::reserved + 1;   ///< a thread is inside an operation
    static constexpr uint32_t overdue = forks::reserved + 2;  ///< before the next operation something is owed

    const std::shared_ptr<Domain> domain_;
    const Spid spid_;
    Slot& slot_;
    ScopedDescriptor epoll_;
    int givenDescriptor_ = -1;  ///< the user's duplicate of the epoll set
    ScopedDescriptor doorbell_;

    std::atomic<uint32_t> entry_;  ///< the stamp with which one may enter, or one of the two above
    uint32_t nextEntry_;           ///< what it becomes after the operation
    uint32_t forksSeen_;           ///< the stamp that the process had when the endpoint was made or claimed
    uint32_t generation_;          ///< of the process that has the endpoint
    uint32_t forkRound_;
    bool disowned_ = false;

    Pool pool_;
    Peers peers_;
    Timers timers_;
    SpinBudget budget_;

    SignalQueue queue_;
    Ref claimedChain_ = 0;  ///< taken from the mailbox, not in the queue yet
    bool awake_ = false;    ///< the wake state has been set to awake
    bool byteIn_ = false;   ///< the doorbell is known to hold a byte
    uint64_t eventsSeenAt_ = 0;

    bool waitFailed_ = false;    ///< somebody has closed what this endpoint waits on
    bool missedEnds_ = false;    ///< peers have ended whose ends are still to be looked for
    std::vector<Spid> dead_;     ///< to be reaped: the lock was taken when their ends were noticed
    bool owesRings_ = false;     ///< somebody asked to be rung and could not be
    uint64_t ringsTriedAt_ = 0;  ///< the tick in which an operation last tried to make that good
    bool owesAnswers_ = false;   ///< somebody hunts for this endpoint and could not be answered
    uint32_t debtPause_ = 0;     ///< milliseconds until what is owed others is tried again

    uint32_t held_ = 0;                   ///< signals that the user holds
    BlockRef recent_ = {&noBlock, 0, 0};  ///< given to the user last: most often the one that comes back next
    LinxRef lastReference_ = 0;
    std::unordered_set<char*> names_;
};

}  // namespace linx

#endif
