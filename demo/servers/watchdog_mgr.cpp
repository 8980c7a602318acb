#include <map>
#include <set>
#include <string>

#include "demo/servers/servers.h"
#include "platform/Watchdog.h"

namespace demo {

namespace {

constexpr int turn = 500;  // milliseconds between two signs of life to its own supervisor

/// Knows who is there, supervises everybody, and decides what happens when somebody dies.
class WatchdogMgr : public Server {
public:
    explicit WatchdogMgr(const Wiring& wiring) : Server(e_WatchdogMgr, wiring) {
        on<&WatchdogMgr::onHello>(m_Hello, this);
        on<&WatchdogMgr::onReady>(m_Ready, this);
        on<&WatchdogMgr::onPeerEnded>(m_PeerEnded, this);
        ipc.RegisterShutdown([](LinxIpc*, void* self) { static_cast<WatchdogMgr*>(self)->shutDown(); }, this);
    }

private:
    static constexpr std::size_t others = roster.size() - 1;

    int join() override { return 0; }

    int serve() override {
        Watchdog watchdog;
        int result = 0;
        while (result == 0) result = ipc.Receive(watchdog, turn);
        return result;
    }

    void onHello(IpcMessage& message) {
        const std::string who = message.GetSender();
        const e_Process server = LinxServerNameList::Instance().Process(who);
        pids_[server] = unpack<Hello>(message).pid;
        report.note(Fact::announced, static_cast<unsigned>(pids_[server]),
                    who + " announces itself, process " + std::to_string(pids_[server]));
        if (const int result = ipc.Attach(who.c_str(), m_PeerEnded); result != 0) {
            report.fail("cannot supervise " + who + ": " + std::to_string(result));
        }
        if (serving_) return tell(server, m_Start);
        if (pids_.size() == others) tellOthers(e_WatchdogMgr, m_Start);
    }

    void onReady(IpcMessage& message) {
        const e_Process server = LinxServerNameList::Instance().Process(message.GetSender());
        ready_.insert(server);
        if (ready_.size() < others) return;
        if (serving_) return tellOthers(server, m_PeerBack, demo::PeerBack{server, pids_[server]});
        serving_ = true;
        report.say("everybody is here and ready");
        tell(launcher, m_AllReady);
    }

    void onPeerEnded(IpcMessage& message) {
        const std::string who = message.GetSender();
        const e_Process server = LinxServerNameList::Instance().Process(who);
        ready_.erase(server);
        report.note(Fact::supervisorTold, 0, "supervises " + who + ": told that it ended; tells the others");
        tellOthers(server, m_ProcessDied, Died{server});
        report.say("decides that " + who + " is started again");
        tell(launcher, m_Restart, Died{server});
    }

    void shutDown() {
        report.say("passes the shutdown request on");
        tell(e_SysTickHal, m_Shutdown);  // first: it talks to the others unasked
        for (const auto& [server, pid] : pids_) {
            if (server != e_SysTickHal) tell(server, m_Shutdown);
        }
    }

    /// To everybody but `except` and this server itself.
    template <class... Body>
    void tellOthers(e_Process except, unsigned number, const Body&... body) {
        for (const auto& [server, pid] : pids_) {
            if (server != except) tell(server, number, body...);
        }
    }

    std::map<e_Process, std::int32_t> pids_;  // of those who announced themselves
    std::set<e_Process> ready_;
    bool serving_ = false;
};

}  // namespace

std::unique_ptr<Server> makeWatchdogMgr(const Wiring& wiring) {
    return std::make_unique<WatchdogMgr>(wiring);
}

}  // namespace demo
