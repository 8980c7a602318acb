#include <unistd.h>

#include "demo/servers/servers.h"

namespace demo {

namespace {

/// Encodes on a node of its own. Those who have it do so are behind a link, which it need not know: it answers
/// whoever has sent.
class EncodeCtrl : public Server {
public:
    EncodeCtrl(e_Process self, const Wiring& wiring) : Server(self, wiring) {
        on<&EncodeCtrl::onEncode>(m_Encode, this);
    }

private:
    int join() override { return 0; }  // WatchdogMgr is not of this node

    void onEncode(IpcMessage& message) {
        const std::string client = message.GetSender();
        report.say("encodes for " + client);
        tell(client, m_Encoded, Encoded{getpid()});
    }
};

}  // namespace

std::unique_ptr<Server> makeEncodeCtrl(e_Process self, const Wiring& wiring) {
    return std::make_unique<EncodeCtrl>(self, wiring);
}

}  // namespace demo
