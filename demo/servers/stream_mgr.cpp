#include <cstring>

#include "demo/servers/servers.h"

namespace demo {

namespace {

/// Hands the signals of a stream on to PlaybackMgr as they are: the bytes stay where ConnectionMgr wrote them.
class StreamMgr : public Server {
public:
    explicit StreamMgr(const Wiring& wiring) : Server(e_StreamMgr, wiring) {
        ipc.RegisterRelayHandler(m_StreamChunk, &StreamMgr::onStreamChunk, this);
    }

private:
    static void onStreamChunk(LinxIpc* endpoint, void* self) {
        static_cast<StreamMgr*>(self)->passOn(endpoint->relayMessage);
    }

    void passOn(RelayMessage& chunk) {
        const auto head = unpack<StreamChunk>(chunk);
        const std::int32_t mark = e_StreamMgr;
        std::memcpy(chunk.DataPtr() + offsetof(StreamChunk, relayedBy), &mark, sizeof mark);
        const int result = ipc.Relay(chunk, nameOf(e_PlaybackMgr));
        if (result != 0) return report.fail("cannot relay: " + std::to_string(result));
        report.note(Fact::chunkRelayed, head.sequence);
        if (head.sequence + 1 == head.count) {
            report.say("relayed " + std::to_string(head.count) + " signals from " + chunk.GetSender() +
                       " to PlaybackMgr, no byte copied");
        }
    }
};

}  // namespace

std::unique_ptr<Server> makeStreamMgr(const Wiring& wiring) {
    return std::make_unique<StreamMgr>(wiring);
}

}  // namespace demo
