#ifndef LINXIPC_LINK_PROGRAM_NODE_H
#define LINXIPC_LINK_PROGRAM_NODE_H

#include "link/engine/switchboard.h"
#include "link/program/setup.h"
#include "link/proxies/gateway.h"

namespace linx::link {

/// The node at work: keeps the sessions with its peers up, logs how they come and go, and has the proxies served.
class Node {
public:
    Node(const Setup& setup, ZmqEngine& engine);

    /// Opens the links' own endpoints. What is wrong; empty when nothing is.
    std::string open();

    /// Until `stop` becomes readable; then it takes its leave of all peers.
    void run(int stop);

private:
    /// A link has been up, or down, since then.
    struct Phase {
        Time since;
        std::string reason;  ///< of its last end; empty while it is up, and before it was
    };

    Time turn();
    bool serve();
    void rest(Time deadline, int stop);
    void tell(size_t link, const Event& event);
    Status statusOf(size_t link);
    void tellOfTrouble(size_t link);
    void tellOfStrangers();
    size_t upCount();
    void takeLeave();

    ZmqEngine& engine_;
    const std::vector<LinkConfiguration>& links_;
    Switchboard board_;
    Transit transit_;
    std::vector<std::unique_ptr<Gateway>> gateways_;
    std::vector<std::string> troubles_;  ///< as they were told last
    std::vector<Phase> phases_;
    uint64_t strangersTold_ = 0;
};

}  // namespace linx::link

#endif
