#include <cerrno>
#include <string>

#include "demo/servers/servers.h"

namespace demo {

namespace {

/// Keeps the device's state, its place among it: supervises GpsHal and is the one left waiting when it dies.
class StateMgr : public Server {
public:
    explicit StateMgr(const Wiring& wiring) : Server(e_StateMgr, wiring) {
        on<&StateMgr::onLocate>(m_Locate, this);
        on<&StateMgr::onPeerEnded>(m_PeerEnded, this);
    }

private:
    void prepare() override { supervise(); }

    void supervise() {
        if (const int result = ipc.Attach(nameOf(e_GpsHal).c_str(), m_PeerEnded); result != 0) {
            report.fail("cannot supervise GpsHal: " + std::to_string(result));
        }
    }

    void onLocate(IpcMessage&) {
        report.say("asks GpsHal for a new position");
        IpcMessage question;
        IpcMessage answer;
        question.Allocate(m_FixRequest, 0, nullptr);
        const int timeout = static_cast<int>(config.answerTime);
        const int result = ipc.Request(nameOf(e_GpsHal), question, m_FixReply, timeout, &answer);
        if (result != EHOSTUNREACH) return report.fail("its request gave " + std::to_string(result));
        report.note(Fact::requestCutShort, static_cast<unsigned>(result),
                    "GpsHal died while it waited: Request returned 113");
    }

    void onPeerEnded(IpcMessage& message) {
        report.note(Fact::supervisorTold, 0, "supervises " + message.GetSender() + ": told that it ended");
    }

    void peerBack(const demo::PeerBack&) override {
        // The request comes first: its failed send to the dead incarnation is what makes the name known anew.
        Position position{};
        if (!askPosition(position)) return;
        report.note(Fact::reached, static_cast<unsigned>(position.pid),
                    "reaches GpsHal under the same name, now process " + std::to_string(position.pid));
        supervise();
    }
};

}  // namespace

std::unique_ptr<Server> makeStateMgr(const Wiring& wiring) {
    return std::make_unique<StateMgr>(wiring);
}

}  // namespace demo
