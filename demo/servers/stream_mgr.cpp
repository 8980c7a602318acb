#include <cstring>

#include "demo/servers/servers.h"

namespace demo {

namespace {

/// Hands the signals of a stream on to PlaybackMgr as they are: the bytes stay where ConnectionMgr wrote them.
class StreamMgr : public Server {
public:
    explicit StreamMgr(const Wiring& wiring) : Server(e_StreamMgr, wiring) {
        ipc.RegisterRelayHandler(m_StreamChunk, &StreamMgr::OnStreamChunk, this);
    }

private:
    static void OnStreamChunk(LinxIpc* endpoint, void* self) {
        static_cast<StreamMgr*>(self)->PassOn(endpoint->relayMessage);
    }

    void PassOn(RelayMessage& chunk) {
        const auto head = Unpack<StreamChunk>(chunk);
        const std::int32_t mark = e_StreamMgr;
        std::memcpy(chunk.DataPtr() + offsetof(StreamChunk, relayedBy), &mark, sizeof mark);
        const int result = ipc.Relay(chunk, Name(e_PlaybackMgr));
        if (result != 0) return report.Fail("cannot relay: " + std::to_string(result));
        report.Note(Fact::chunkRelayed, head.sequence);
        if (head.sequence + 1 == head.count) {
            report.Say("relayed " + std::to_string(head.count) + " signals from " + chunk.GetSender() +
                       " to PlaybackMgr, no byte copied");
        }
    }
};

}  // namespace

std::unique_ptr<Server> MakeStreamMgr(const Wiring& wiring) {
    return std::make_unique<StreamMgr>(wiring);
}

}  // namespace demo
