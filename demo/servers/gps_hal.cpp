#include <unistd.h>

#include "demo/servers/servers.h"

namespace demo {

namespace {

/// Knows a last position at once; a new one takes longer than the demonstration may, so that no incarnation of it
/// lives to see one.
class GpsHal : public Server {
public:
    explicit GpsHal(const Wiring& wiring) : Server(e_GpsHal, wiring) {
        On<&GpsHal::OnPositionRequest>(m_PositionRequest, this);
        On<&GpsHal::OnFixRequest>(m_FixRequest, this);
        On<&GpsHal::OnFixDue>(m_FixReply, this);
    }

private:
    static Position Here() { return {getpid(), 48137154, 11576124}; }

    void OnPositionRequest(IpcMessage& message) { Tell(message.GetSender(), m_PositionReply, Here()); }

    void OnFixRequest(IpcMessage& message) {
        client = message.GetSender();
        ipc.EnableTimer(static_cast<int>(config.fixTime), m_FixReply);
        report.Note(Fact::fixAwaited, 0, "looks for satellites; " + client + " waits for its answer");
    }

    void OnFixDue(IpcMessage&) { Tell(client, m_FixReply, Here()); }

    std::string client;
};

}  // namespace

std::unique_ptr<Server> MakeGpsHal(const Wiring& wiring) {
    return std::make_unique<GpsHal>(wiring);
}

}  // namespace demo
