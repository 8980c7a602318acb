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
    explicit UiMgr(const Wiring& wiring) : Server(e_UiMgr, wiring), frontPanel_(wiring.frontPanel) {
        on<&UiMgr::onTick>(m_Tick, this);
    }

private:
    int serve() override {
        pollfd watched[] = {{ipc.Descriptor(), POLLIN, 0}, {frontPanel_, POLLIN, 0}};
        for (;;) {
            if (poll(watched, 2, -1) == -1 && errno != EINTR) return errno;
            if (watched[0].revents != 0) {
                if (const int result = takeSignal(); result != 0) return result;
            }
            if (watched[1].revents != 0) {
                if (const int result = takeButton(); result != 0) return result;
            }
        }
    }

    int takeSignal() {
        const int result = ipc.Receive(0, 0, LinxIpc::emptyString, nullptr);
        if (result == ETIMEDOUT) return 0;  // nothing to return: the descriptor may be readable once too often
        if (result == 0) report.note(Fact::signalPolled, 0);
        return result;
    }

    int takeButton() {
        char button = 0;
        if (read(frontPanel_, &button, 1) != 1) return EPIPE;
        report.note(
            Fact::buttonRead, static_cast<unsigned char>(button),
            button == b_Play ? "poll loop: the button Play was pressed" : "poll loop: the button Locate was pressed");
        return button == b_Play ? play() : locate();
    }

    int play() {
        IpcMessage question;
        pack(question, m_Connect, Connect{++round_});
        handledMeanwhile_ = 0;
        report.say("asks ConnectionMgr to connect, and handles other messages meanwhile");
        // Into the endpoint's own message: the handlers that run meanwhile look there.
        const int timeout = static_cast<int>(config.answerTime);
        const int result = ipc.AsyncRequest(nameOf(e_ConnectionMgr), question, m_Connected, timeout, nullptr);
        if (result == ESHUTDOWN) return result;
        const auto answer = unpack<Connected>(ipc.rxMessage);
        if (result != 0 || answer.round != round_ || answer.bytes != config.payload) {
            report.fail("its asynchronous request gave " + std::to_string(result));
            return 0;
        }
        report.note(Fact::connected, handledMeanwhile_,
                    "connected; handled " + std::to_string(handledMeanwhile_) + " ticks while it waited");
        return 0;
    }

    int locate() {
        Position position{};
        if (!askPosition(position)) return 0;
        report.note(Fact::positionTaken, static_cast<unsigned>(position.pid),
                    "has the last position from GpsHal, process " + std::to_string(position.pid));
        tell(e_StateMgr, m_Locate);
        return 0;
    }

    void onTick(IpcMessage& message) {
        ++handledMeanwhile_;
        report.note(Fact::tickSeen, unpack<Tick>(message).number);
    }

    void peerBack(const demo::PeerBack&) override {
        Position position{};
        if (!askPosition(position)) return;
        report.note(Fact::reached, static_cast<unsigned>(position.pid),
                    "reaches GpsHal under the same name, now process " + std::to_string(position.pid));
    }

    int frontPanel_;
    std::uint32_t round_ = 0;
    std::uint32_t handledMeanwhile_ = 0;
};

}  // namespace

std::unique_ptr<Server> makeUiMgr(const Wiring& wiring) {
    return std::make_unique<UiMgr>(wiring);
}

}  // namespace demo
