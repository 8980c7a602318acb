#include "demo/servers/servers.h"
#include "demo/stream.h"

namespace demo {

namespace {

/// The end of the stream: looks at every signal's order, road and bytes.
class PlaybackMgr : public Server {
public:
    explicit PlaybackMgr(const Wiring& wiring) : Server(e_PlaybackMgr, wiring) {
        on<&PlaybackMgr::onStreamChunk>(m_StreamChunk, this);
    }

private:
    void onStreamChunk(IpcMessage& message) {
        const auto head = unpack<StreamChunk>(message);
        if (head.sequence == 0) begin(head);
        if (!fits(head, message)) {
            return report.fail("chunk " + std::to_string(head.sequence) + " is not the one that was due");
        }
        sum_.add(message.DataPtr() + sizeof head, head.bytes);
        bytes_ += head.bytes;
        ++due_;
        if (due_ == head.count) end(head);
    }

    void begin(const StreamChunk& head) {
        round_ = head.round;
        due_ = 0;
        bytes_ = 0;
        sum_ = Checksum();
    }

    bool fits(const StreamChunk& head, const IpcMessage& message) const {
        return head.round == round_ && head.sequence == due_ && message.Length() == sizeof head + head.bytes &&
               head.relayedBy == e_StreamMgr && message.GetSender() == nameOf(e_StreamMgr);
    }

    void end(const StreamChunk& head) {
        if (sum_.value() != head.checksum || bytes_ != config.payload) {
            return report.fail("the stream did not arrive as it was sent");
        }
        report.note(Fact::streamPlayed, sum_.value(),
                    "has " + std::to_string(bytes_) + " bytes in order, checksum right");
        tell(e_ConnectionMgr, m_StreamPlayed, StreamPlayed{round_, bytes_, sum_.value()});
    }

    std::uint32_t round_ = 0;
    std::uint32_t due_ = 0;  // sequence number of the next chunk
    std::uint32_t bytes_ = 0;
    Checksum sum_;
};

}  // namespace

std::unique_ptr<Server> makePlaybackMgr(const Wiring& wiring) {
    return std::make_unique<PlaybackMgr>(wiring);
}

}  // namespace demo
