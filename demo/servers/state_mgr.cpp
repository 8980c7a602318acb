#include <cerrno>
#include <string>

#include "demo/servers/servers.h"

namespace demo {

namespace {

/// Keeps the device's state, its place among it: supervises GpsHal and is the one left waiting when it dies.
class StateMgr : public Server {
public:
    explicit StateMgr(const Wiring& wiring) : Server(e_StateMgr, wiring) {
        On<&StateMgr::OnLocate>(m_Locate, this);
        On<&StateMgr::OnPeerEnded>(m_PeerEnded, this);
    }

private:
    void Prepare() override { Supervise(); }

    void Supervise() {
        if (const int result = ipc.Attach(Name(e_GpsHal).c_str(), m_PeerEnded); result != 0) {
            report.Fail("cannot supervise GpsHal: " + std::to_string(result));
        }
    }

    void OnLocate(IpcMessage&) {
        report.Say("asks GpsHal for a new position");
        IpcMessage question;
        IpcMessage answer;
        question.Allocate(m_FixRequest, 0, nullptr);
        const int timeout = static_cast<int>(config.answerTime);
        const int result = ipc.Request(Name(e_GpsHal), question, m_FixReply, timeout, &answer);
        if (result != EHOSTUNREACH) return report.Fail("its request gave " + std::to_string(result));
        report.Note(Fact::requestCutShort, static_cast<unsigned>(result),
                    "GpsHal died while it waited: Request returned 113");
    }

    void OnPeerEnded(IpcMessage& message) {
        report.Note(Fact::supervisorTold, 0, "supervises " + message.GetSender() + ": told that it ended");
    }

    void PeerBack(const demo::PeerBack&) override {
        // The request comes first: its failed send to the dead incarnation is what makes the name known anew.
        Position position{};
        if (!AskPosition(position)) return;
        report.Note(Fact::reached, static_cast<unsigned>(position.pid),
                    "reaches GpsHal under the same name, now process " + std::to_string(position.pid));
        Supervise();
    }
};

}  // namespace

std::unique_ptr<Server> MakeStateMgr(const Wiring& wiring) {
    return std::make_unique<StateMgr>(wiring);
}

}  // namespace demo
