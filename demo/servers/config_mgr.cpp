#include "demo/servers/servers.h"

namespace demo {

namespace {

/// Knows the configuration and gives it to whoever asks, from a handler.
class ConfigMgr : public Server {
public:
    explicit ConfigMgr(const Wiring& wiring) : Server(e_ConfigMgr, wiring) {
        config.seed = wiring.seed;
        config.payload = wiring.payload;
        config.tickPeriod = 40;
        config.fixTime = wiring.limit * 2000;
        config.answerTime = static_cast<std::uint32_t>(patience);
        config.ticksPerConnect = 3;
        on<&ConfigMgr::onConfigRequest>(m_ConfigRequest, this);
    }

private:
    void start() override { tell(e_WatchdogMgr, m_Ready); }

    void onConfigRequest(IpcMessage& message) {
        tell(message.GetSender(), m_ConfigReply, config);
        report.note(Fact::configGiven, 0);
    }
};

}  // namespace

std::unique_ptr<Server> makeConfigMgr(const Wiring& wiring) {
    return std::make_unique<ConfigMgr>(wiring);
}

}  // namespace demo
