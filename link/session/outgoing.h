#ifndef LINXIPC_LINK_SESSION_OUTGOING_H
#define LINXIPC_LINK_SESSION_OUTGOING_H

#include "link/session/own_endpoints.h"
#include "link/session/settings.h"

namespace linx::link {

/// What became of a signal that was to be sent.
enum class Sent {
    taken,     ///< it goes, if the session lasts
    later,     ///< its destination has enough that waits; the signal stays where it is
    gone,      ///< its destination or its source has ended
    tooLarge,  ///< for the far side; it can never go
};

/// The signals for the far side's endpoints: a channel for each, on which they keep their order, and turns among the
/// channels. Each channel may send as much as its destination has given credit for.
class Outgoing {
public:
    explicit Outgoing(OwnEndpoints& own) : own_(own) {}

    /// The far side has announced an endpoint, ended it, or given credit. False for what no link says.
    bool open(FarId id, const Announcement& announcement);
    bool close(FarId id);
    bool credit(FarId id, uint64_t allowed);

    /// `payload` is moved from only when the signal is taken.
    Sent send(FarId to, OwnId from, uint32_t number, Bytes&& payload, uint32_t largest);

    /// A frame of signals whose header still lacks tag and sequence, as one that waits; nothing when no channel may
    /// send. `whole` is the number of signals whose last byte is in it.
    struct Filled {
        Note note;
        uint8_t flags = 0;
        uint32_t whole = 0;
    };
    std::optional<Filled> nextFrame();

    bool isAlive(FarId id) const { return channels_.count(numberOf(id)) != 0; }
    bool wasAnnounced(FarId id) const { return numberOf(id) != 0 && numberOf(id) < next_; }
    const std::string* nameOf(FarId id) const;
    bool isEmpty() const { return bytes_ == 0; }
    size_t bytes() const { return bytes_; }
    uint64_t undeliverable() const { return undeliverable_; }
    /// A destination for which something waits, and how many bytes it may still be sent.
    struct Queued {
        const std::string& name;
        size_t signals;
        size_t bytes;
        uint64_t credit;
    };
    std::vector<Queued> queued() const;
    /// Signals that wait for the endpoint, and for all.
    std::vector<Loss> waiting() const;

private:
    struct Signal {
        OwnId from = {};
        uint32_t number = 0;
        Bytes payload;
    };
    struct Channel {
        std::string name;
        uint32_t credit = 0;
        uint64_t allowed = 0;
        uint64_t charged = 0;
        std::deque<Signal> queue;
        size_t bytes = 0;   ///< in the queue, with what comes in front of each signal
        size_t offset = 0;  ///< of the first signal that went in fragments
        bool isPartial = false;
        int64_t deficit = 0;
        bool hasTurn = false;  ///< stands among those that take turns
    };

    static bool isLarge(const Signal& signal);
    static size_t sizeOf(const Signal& signal) { return signalHeadBytes + signal.payload.size(); }
    bool hasCredit(const Channel& channel) const;
    bool mayBegin(const Channel& channel) const;
    void giveTurn(uint32_t number, Channel& channel);
    Filled fill(uint32_t number, Channel& channel);
    Filled fillWithSignals(uint32_t number, Channel& channel);
    Filled fillWithFragment(uint32_t number, Channel& channel);
    void pop(Channel& channel);

    OwnEndpoints& own_;
    std::unordered_map<uint32_t, Channel> channels_;
    std::unordered_set<std::string> names_;
    std::deque<uint32_t> turns_;
    uint32_t next_ = 1;
    unsigned partials_ = 0;
    size_t bytes_ = 0;
    uint64_t undeliverable_ = 0;
};

}  // namespace linx::link

#endif
