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
        On<&WatchdogMgr::OnHello>(m_Hello, this);
        On<&WatchdogMgr::OnReady>(m_Ready, this);
        On<&WatchdogMgr::OnPeerEnded>(m_PeerEnded, this);
        ipc.RegisterShutdown([](LinxIpc*, void* self) { static_cast<WatchdogMgr*>(self)->ShutDown(); }, this);
    }

private:
    static constexpr std::size_t others = roster.size() - 1;

    int Join() override { return 0; }

    int Serve() override {
        Watchdog watchdog;
        int result = 0;
        while (result == 0) result = ipc.Receive(watchdog, turn);
        return result;
    }

    void OnHello(IpcMessage& message) {
        const std::string who = message.GetSender();
        const e_Process server = LinxServerNameList::Instance().Process(who);
        pids[server] = Unpack<Hello>(message).pid;
        report.Note(Fact::announced, static_cast<unsigned>(pids[server]),
                    who + " announces itself, process " + std::to_string(pids[server]));
        if (const int result = ipc.Attach(who.c_str(), m_PeerEnded); result != 0) {
            report.Fail("cannot supervise " + who + ": " + std::to_string(result));
        }
        if (serving) return Tell(server, m_Start);
        if (pids.size() == others) TellOthers(e_WatchdogMgr, m_Start);
    }

    void OnReady(IpcMessage& message) {
        const e_Process server = LinxServerNameList::Instance().Process(message.GetSender());
        ready.insert(server);
        if (ready.size() < others) return;
        if (serving) return TellOthers(server, m_PeerBack, demo::PeerBack{server, pids[server]});
        serving = true;
        report.Say("everybody is here and ready");
        Tell(launcher, m_AllReady);
    }

    void OnPeerEnded(IpcMessage& message) {
        const std::string who = message.GetSender();
        const e_Process server = LinxServerNameList::Instance().Process(who);
        ready.erase(server);
        report.Note(Fact::supervisorTold, 0, "supervises " + who + ": told that it ended; tells the others");
        TellOthers(server, m_ProcessDied, Died{server});
        report.Say("decides that " + who + " is started again");
        Tell(launcher, m_Restart, Died{server});
    }

    void ShutDown() {
        report.Say("passes the shutdown request on");
        Tell(e_SysTickHal, m_Shutdown);  // first: it talks to the others unasked
        for (const auto& [server, pid] : pids) {
            if (server != e_SysTickHal) Tell(server, m_Shutdown);
        }
    }

    /// To everybody but `except` and this server itself.
    template <class... Body>
    void TellOthers(e_Process except, unsigned number, const Body&... body) {
        for (const auto& [server, pid] : pids) {
            if (server != except) Tell(server, number, body...);
        }
    }

    std::map<e_Process, std::int32_t> pids;  // of those who announced themselves
    std::set<e_Process> ready;
    bool serving = false;
};

}  // namespace

std::unique_ptr<Server> MakeWatchdogMgr(const Wiring& wiring) {
    return std::make_unique<WatchdogMgr>(wiring);
}

}  // namespace demo
