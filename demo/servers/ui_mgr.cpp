#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "demo/servers/servers.h"

namespace demo {

namespace {

/// Waits in a poll loop of its own, for signals and for the buttons of the front panel.
class UiMgr : public Server {
public:
    explicit UiMgr(const Wiring& wiring) : Server(e_UiMgr, wiring), frontPanel(wiring.frontPanel) {
        On<&UiMgr::OnTick>(m_Tick, this);
    }

private:
    int Serve() override {
        pollfd watched[] = {{ipc.Descriptor(), POLLIN, 0}, {frontPanel, POLLIN, 0}};
        for (;;) {
            if (poll(watched, 2, -1) == -1 && errno != EINTR) return errno;
            if (watched[0].revents != 0) {
                if (const int result = TakeSignal(); result != 0) return result;
            }
            if (watched[1].revents != 0) {
                if (const int result = TakeButton(); result != 0) return result;
            }
        }
    }

    int TakeSignal() {
        const int result = ipc.Receive(0, 0, LinxIpc::emptyString, nullptr);
        if (result == ETIMEDOUT) return 0;  // nothing to return: the descriptor may be readable once too often
        if (result == 0) report.Note(Fact::signalPolled, 0);
        return result;
    }

    int TakeButton() {
        char button = 0;
        if (read(frontPanel, &button, 1) != 1) return EPIPE;
        report.Note(
            Fact::buttonRead, static_cast<unsigned char>(button),
            button == b_Play ? "poll loop: the button Play was pressed" : "poll loop: the button Locate was pressed");
        return button == b_Play ? Play() : Locate();
    }

    int Play() {
        IpcMessage question;
        Pack(question, m_Connect, Connect{++round});
        handledMeanwhile = 0;
        report.Say("asks ConnectionMgr to connect, and handles other messages meanwhile");
        // Into the endpoint's own message: the handlers that run meanwhile look there.
        const int timeout = static_cast<int>(config.answerTime);
        const int result = ipc.AsyncRequest(Name(e_ConnectionMgr), question, m_Connected, timeout, nullptr);
        if (result == ESHUTDOWN) return result;
        const auto answer = Unpack<Connected>(ipc.rxMessage);
        if (result != 0 || answer.round != round || answer.bytes != config.payload) {
            report.Fail("its asynchronous request gave " + std::to_string(result));
            return 0;
        }
        report.Note(Fact::connected, handledMeanwhile,
                    "connected; handled " + std::to_string(handledMeanwhile) + " ticks while it waited");
        return 0;
    }

    int Locate() {
        Position position{};
        if (!AskPosition(position)) return 0;
        report.Note(Fact::positionTaken, static_cast<unsigned>(position.pid),
                    "has the last position from GpsHal, process " + std::to_string(position.pid));
        Tell(e_StateMgr, m_Locate);
        return 0;
    }

    void OnTick(IpcMessage& message) {
        ++handledMeanwhile;
        report.Note(Fact::tickSeen, Unpack<Tick>(message).number);
    }

    void PeerBack(const demo::PeerBack&) override {
        Position position{};
        if (!AskPosition(position)) return;
        report.Note(Fact::reached, static_cast<unsigned>(position.pid),
                    "reaches GpsHal under the same name, now process " + std::to_string(position.pid));
    }

    int frontPanel;
    std::uint32_t round = 0;
    std::uint32_t handledMeanwhile = 0;
};

}  // namespace

std::unique_ptr<Server> MakeUiMgr(const Wiring& wiring) {
    return std::make_unique<UiMgr>(wiring);
}

}  // namespace demo
