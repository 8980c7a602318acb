#ifndef LINXIPC_TESTS_SIMULATE_NODE_H
#define LINXIPC_TESTS_SIMULATE_NODE_H

#include "tests/simulate/books.h"
#include "tests/simulate/network.h"

namespace simulate {

/// What all nodes of a world have in common.
struct World {
    Random& random;
    const Weather& weather;
    Trace& trace;
    Books& books;
    Network& network;
    Time now = {};
};

/// A node: applications that open, hunt, send, consume and close, and a link that does for them what a link does,
/// with the sessions under test.
class Node : public Station {
public:
    Node(World& world, int number, int nodes);

    bool runs() const override { return world_.now >= pausedUntil_; }
    void connected(int peer, Connection connection, bool dialledHere) override;
    void dialFailed(int peer) override;
    void arrived(int peer, Connection connection, const Bytes& frame) override;
    void disconnected(int peer, Connection connection) override;

    /// Takes what its sessions tell, and does what is due.
    void run();
    Time deadline() const;
    /// The applications do something or other.
    void act();
    void consume();

    void pause(Time until) { pausedUntil_ = until; }
    void resume() { pausedUntil_ = {}; }
    /// The link is killed and begins anew; the applications live on.
    void restart();

    // When the network is well again.
    /// No application is slow any more.
    void wakeUp();
    /// A signal through each proxy, and a hunt for each name.
    void sendEverywhere();
    /// All sessions are up; what was sent to those who are not slow is there; what was sought and is there is found.
    bool isWell(const std::vector<std::unique_ptr<Node>>& nodes) const;
    bool isAtRest(const std::vector<std::unique_ptr<Node>>& nodes) const;
    void checkBounds();
    uint64_t sessions() const { return sessions_; }

private:
    struct Parcel {
        int peer;
        Tag tag;
        OwnId at;
        size_t size;
    };
    struct App {
        Life life = 0;
        bool isSlow = false;
        std::deque<Parcel> inbox;
    };
    struct Link {
        std::unique_ptr<linx::link::Peer> peer;
        std::vector<Connection> connections;
        std::set<std::string> standing;                            ///< what the far side hunts for
        std::set<std::string> wanted;                              ///< what is hunted here; survives the link process
        std::map<std::string, OwnId> own;                          ///< what the far side knows of
        std::map<OwnId, std::pair<std::string, uint32_t>> owners;  ///< and with which credit
        std::map<OwnId, uint64_t> outstanding;                     ///< charges of what came and was not consumed
        std::map<std::string, FarId> proxies;
        std::map<FarId, std::string> names;
        Tag in = 0;
        Tag out = 0;
        bool isUp = false;
    };

    void begin(int peer);
    void takeEvents(int peer);
    bool mayTake(const linx::link::Event& event);
    void told(int peer, linx::link::Event event);
    void up(int peer);
    void arrivedSignal(Link& link, int peer, const linx::link::Arrived& signal);
    void down(int peer, const linx::link::Down& event);
    void announceWanted(Link& link);
    bool announce(Link& link, const std::string& name);
    void pushFrames(int peer);
    void open(const std::string& name);
    void close(const std::string& name);
    void sendFrom(const std::string& name);
    void sendTo(Link& link, const std::string& from, FarId to, size_t size);
    size_t someSize();
    std::string someName();
    const std::string* someApp();

    World& world_;
    const int number_;
    const int nodes_;
    const bool bothDial_;
    Time pausedUntil_ = {};
    Time starvedUntil_ = {};
    std::map<std::string, App> apps_;
    std::map<int, Link> links_;
    uint64_t sessions_ = 0;
};

}  // namespace simulate

#endif
