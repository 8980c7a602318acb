#ifndef LINXIPC_LINK_ENGINE_LOCAL_ENGINE_H
#define LINXIPC_LINK_ENGINE_LOCAL_ENGINE_H

#include <deque>
#include <map>
#include <vector>

#include "link/engine/engine.h"

namespace linx::link {

/// A node as a LocalEngine reaches it.
struct LocalNode {
    std::string key;
    std::string address;  ///< in the abstract name space of local sockets, which leaves no file; empty: only dials
};

/// Between processes of one machine, over local sockets that keep messages apart. For tests, and for machines that
/// have no other engine: everybody is believed to have the key that it says.
class LocalEngine : public Engine {
public:
    LocalEngine(const LocalNode& self, std::vector<LocalNode> peers);
    ~LocalEngine() override;
    /// Its address was free.
    bool isListening() const { return listener_ != -1; }

    void dial(PeerNumber peer, Time now) override;
    Carried send(Connection connection, const Bytes& frame) override;
    void close(Connection connection) override;
    std::optional<News> next(Time now) override;
    int descriptor() const override { return epoll_; }
    Time deadline() const override { return news_.empty() ? Time::max() : Time(0); }

private:
    /// A socket that was accepted belongs to nobody until it has said a key.
    struct Line {
        Connection connection = {};
        std::optional<PeerNumber> peer;
    };

    void watch(int socket);
    void add(int socket, std::optional<PeerNumber> peer);
    void acceptOne();
    void readFrom(int socket);
    void greeted(int socket, Line& line, const std::string& key);
    void drop(int socket);
    std::optional<int> socketOf(Connection connection) const;

    const std::string key_;
    const std::vector<LocalNode> peers_;
    int epoll_ = -1;
    int listener_ = -1;
    std::map<int, Line> lines_;
    std::deque<News> news_;
    uint64_t next_ = 1;
};

}  // namespace linx::link

#endif
