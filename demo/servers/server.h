#ifndef LINXIPC_DEMO_SERVERS_SERVER_H
#define LINXIPC_DEMO_SERVERS_SERVER_H

#include "demo/protocol.h"
#include "demo/report.h"
#include "demo/roster.h"
#include "demo/servers/payload.h"
#include "ipc/linxIpc.h"

namespace demo {

/// What a server process gets from the launcher.
struct Wiring {
    int reports = -1;           ///< writing end of the launcher's pipe
    int frontPanel = -1;        ///< reading end of the buttons, for UiMgr
    std::uint64_t seed = 0;     ///< for ConfigMgr; the others ask it
    std::uint32_t payload = 0;  ///< for ConfigMgr; the others ask it
    std::uint32_t limit = 0;    ///< seconds until the demonstration gives up
};

/// What all servers have in common: they announce themselves to WatchdogMgr, get their configuration when everybody
/// is there, and then serve until the shutdown request.
///
/// A server seeks no name before WatchdogMgr has said that its endpoint is there, save WatchdogMgr's own: a late
/// hunt signal that waits in the queue would be taken for the answer to the next hunt.
class Server {
public:
    Server(e_Process self, const Wiring& wiring);
    virtual ~Server() = default;

    /// Serves until the shutdown request. The exit status of the process.
    int run();

protected:
    /// Tells WatchdogMgr that this server is here, as soon as WatchdogMgr is. 0, or the result of a failed receive.
    virtual int join();

    /// WatchdogMgr says that everybody is here: asks for the configuration and calls `prepare`.
    virtual void start();

    /// What is left to do before this server serves: arm timers, supervise peers.
    virtual void prepare() {}

    /// A server that had died answers again.
    virtual void peerBack(const demo::PeerBack&) {}

    /// Receives and dispatches until something ends it. The result of the last receive.
    virtual int serve();

    /// Has the member function `handler` of `self` called for messages of the type `number`.
    template <auto handler, class Self>
    void on(unsigned number, Self* self) {
        ipc.RegisterHandler(
            number,
            [](LinxIpc* endpoint, void* object) { (static_cast<Self*>(object)->*handler)(endpoint->rxMessage); },
            self);
    }

    /// Sends `body` to a server or to whoever is called `destination`; a failure ends the demonstration.
    template <class Body>
    void tell(const std::string& destination, unsigned number, const Body& body) {
        IpcMessage message;
        pack(message, number, body);
        deliver(destination, message);
    }
    template <class Body>
    void tell(e_Process server, unsigned number, const Body& body) {
        tell(nameOf(server), number, body);
    }
    void tell(e_Process server, unsigned number);

    /// Asks GpsHal for its last position. False when there was no answer.
    bool askPosition(Position& position);

    LinxIpc ipc;
    Reporter report;
    Config config{};
    const int patience;  // milliseconds for an answer; less than the launcher's, who is then told who waited in vain

private:
    void onStart(IpcMessage&);
    void onPeerBack(IpcMessage& message);
    void onProcessDied(IpcMessage& message);
    bool askConfig();
    void deliver(const std::string& destination, IpcMessage& message);
};

}  // namespace demo

#endif
