#include <cerrno>
#include <vector>

#include "demo/nodes.h"
#include "demo/servers/servers.h"

namespace demo {

namespace {

/// Has the encoders of the other nodes encode, each as soon as it can be reached and again when it was cut off.
class Offloader : public Server {
public:
    explicit Offloader(const Wiring& wiring) : Server(encodersClient, wiring) {
        on<&Offloader::onEncoded>(m_Encoded, this);
        on<&Offloader::onPeerEnded>(m_PeerEnded, this);
        on<&Offloader::onLinkEnded>(m_LinkEnded, this);
    }

private:
    int join() override { return 0; }

    int serve() override {
        int result = 0;
        for (reach(); result == 0; reach()) result = ipc.Receive(-1, 0, LinxIpc::emptyString, nullptr);
        return result;
    }

    /// One after the other, as only one that is absent may be sought at a time. The late hunt signal ends a receive.
    void reach() {
        if (sought_.empty() || (isAbsent_ && ipc.rxMessage.MsgType() != LINX_OS_HUNT_SIG)) return;
        const e_Process encoder = sought_.back();
        IpcMessage message;
        message.Allocate(m_Encode, 0, nullptr);
        isAbsent_ = ipc.Notify(nameOf(encoder), message, true) != 0;
        if (isAbsent_) return report.say("hunted " + nameOf(encoder) + ": not there yet");
        if (const int result = ipc.Attach(nameOf(encoder).c_str(), m_PeerEnded); result != 0) {
            return report.fail("cannot supervise " + nameOf(encoder) + ": " + std::to_string(result));
        }
        sought_.pop_back();
    }

    void onEncoded(IpcMessage& message) {
        report.note(
            Fact::encoded, static_cast<unsigned>(unpack<Encoded>(message).pid),
            "has " + message.GetSender() + " encode: process " + std::to_string(unpack<Encoded>(message).pid));
        superviseLink();
    }

    /// Once: the name of a link that came back would still be that of its old session.
    void superviseLink() {
        if (isLinkSupervised_) return;
        isLinkSupervised_ = true;
        const std::string session = linkTo(e_Vp0EncodeCtrl) + "/@link";
        if (const int result = ipc.Attach(session.c_str(), m_LinkEnded); result != 0) {
            report.fail("cannot supervise " + session + ": " + std::to_string(result));
        }
    }

    void onPeerEnded(IpcMessage& message) {
        const std::string who = message.GetSender();
        report.note(Fact::encoderLost, 0, "supervises " + who + ": told that it ended");
        sought_.push_back(LinxServerNameList::Instance().Process(who));
    }

    void onLinkEnded(IpcMessage& message) {
        report.note(Fact::linkLost, 0, "supervises " + message.GetSender() + ": told that it ended");
    }

    std::vector<e_Process> sought_{encoders.rbegin(), encoders.rend()};
    bool isAbsent_ = false;
    bool isLinkSupervised_ = false;
};

}  // namespace

std::unique_ptr<Server> makeOffloader(const Wiring& wiring) {
    return std::make_unique<Offloader>(wiring);
}

}  // namespace demo
