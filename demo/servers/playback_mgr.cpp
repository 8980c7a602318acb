#include "demo/servers/servers.h"
#include "demo/stream.h"

namespace demo {

namespace {

/// The end of the stream: looks at every signal's order, road and bytes.
class PlaybackMgr : public Server {
public:
    explicit PlaybackMgr(const Wiring& wiring) : Server(e_PlaybackMgr, wiring) {
        On<&PlaybackMgr::OnStreamChunk>(m_StreamChunk, this);
    }

private:
    void OnStreamChunk(IpcMessage& message) {
        const auto head = Unpack<StreamChunk>(message);
        if (head.sequence == 0) Begin(head);
        if (!Fits(head, message)) {
            return report.Fail("chunk " + std::to_string(head.sequence) + " is not the one that was due");
        }
        sum.Add(message.DataPtr() + sizeof head, head.bytes);
        bytes += head.bytes;
        ++due;
        if (due == head.count) End(head);
    }

    void Begin(const StreamChunk& head) {
        round = head.round;
        due = 0;
        bytes = 0;
        sum = Checksum();
    }

    bool Fits(const StreamChunk& head, const IpcMessage& message) const {
        return head.round == round && head.sequence == due && message.Length() == sizeof head + head.bytes &&
               head.relayedBy == e_StreamMgr && message.GetSender() == Name(e_StreamMgr);
    }

    void End(const StreamChunk& head) {
        if (sum.Value() != head.checksum || bytes != config.payload) {
            return report.Fail("the stream did not arrive as it was sent");
        }
        report.Note(Fact::streamPlayed, sum.Value(),
                    "has " + std::to_string(bytes) + " bytes in order, checksum right");
        Tell(e_ConnectionMgr, m_StreamPlayed, StreamPlayed{round, bytes, sum.Value()});
    }

    std::uint32_t round = 0;
    std::uint32_t due = 0;  // sequence number of the next chunk
    std::uint32_t bytes = 0;
    Checksum sum;
};

}  // namespace

std::unique_ptr<Server> MakePlaybackMgr(const Wiring& wiring) {
    return std::make_unique<PlaybackMgr>(wiring);
}

}  // namespace demo
