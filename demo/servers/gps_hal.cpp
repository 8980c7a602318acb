#include <unistd.h>

#include "demo/servers/servers.h"

namespace demo {

namespace {

/// Knows a last position at once; a new one takes longer than the demonstration may, so that no incarnation of it
/// lives to see one.
class GpsHal : public Server {
public:
    explicit GpsHal(const Wiring& wiring) : Server(e_GpsHal, wiring) {
        on<&GpsHal::onPositionRequest>(m_PositionRequest, this);
        on<&GpsHal::onFixRequest>(m_FixRequest, this);
        on<&GpsHal::onFixDue>(m_FixReply, this);
    }

private:
    static Position here() { return {getpid(), 48137154, 11576124}; }

    void onPositionRequest(IpcMessage& message) { tell(message.GetSender(), m_PositionReply, here()); }

    void onFixRequest(IpcMessage& message) {
        client_ = message.GetSender();
        ipc.EnableTimer(static_cast<int>(config.fixTime), m_FixReply);
        report.note(Fact::fixAwaited, 0, "looks for satellites; " + client_ + " waits for its answer");
    }

    void onFixDue(IpcMessage&) { tell(client_, m_FixReply, here()); }

    std::string client_;
};

}  // namespace

std::unique_ptr<Server> makeGpsHal(const Wiring& wiring) {
    return std::make_unique<GpsHal>(wiring);
}

}  // namespace demo
