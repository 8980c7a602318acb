#include <algorithm>
#include <string>
#include <vector>

#include "demo/servers/servers.h"
#include "demo/stream.h"

namespace demo {

namespace {

/// Connects: sends the stream of the round, lets some ticks pass and answers when the stream has been played.
class ConnectionMgr : public Server {
public:
    explicit ConnectionMgr(const Wiring& wiring) : Server(e_ConnectionMgr, wiring) {
        on<&ConnectionMgr::onConnect>(m_Connect, this);
        on<&ConnectionMgr::onTick>(m_Tick, this);
        on<&ConnectionMgr::onStreamPlayed>(m_StreamPlayed, this);
    }

private:
    void onConnect(IpcMessage& message) {
        client_ = message.GetSender();
        round_ = unpack<Connect>(message).round;
        ticksLeft_ = config.ticksPerConnect;
        played_ = 0;
        report.say("connects for " + client_ + ", which takes " + std::to_string(ticksLeft_) + " ticks");
        sendStream();
    }

    void onTick(IpcMessage&) {
        if (ticksLeft_ > 0) --ticksLeft_;
        answerWhenDone();
    }

    void onStreamPlayed(IpcMessage& message) {
        played_ = unpack<StreamPlayed>(message).bytes;
        answerWhenDone();
    }

    void answerWhenDone() {
        if (client_.empty() || ticksLeft_ > 0 || played_ == 0) return;
        tell(client_, m_Connected, Connected{round_, played_});
        report.say("is connected and answers " + client_);
        client_.clear();
    }

    void sendStream() {
        const std::vector<char> content = streamContent(config.seed, round_, config.payload);
        Checksum sum;
        sum.add(content.data(), content.size());
        StreamChunk head{};
        head.round = round_;
        head.count = chunkCount(config.payload);
        head.checksum = sum.value();
        for (; head.sequence < head.count; ++head.sequence) {
            const std::uint32_t sent = head.sequence * chunkBytes;
            head.bytes = std::min(chunkBytes, config.payload - sent);
            sendChunk(head, content.data() + sent);
        }
        report.say("has sent " + std::to_string(config.payload) + " bytes in " + std::to_string(head.count) +
                   " signals to StreamMgr");
    }

    void sendChunk(const StreamChunk& head, const char* bytes) {
        IpcMessage message;
        message.Allocate(m_StreamChunk, static_cast<unsigned>(sizeof head) + head.bytes, nullptr);
        message.Fill(reinterpret_cast<const char*>(&head), sizeof head);
        message.Fill(bytes, head.bytes);
        if (const int result = ipc.Notify(nameOf(e_StreamMgr), message, true); result != 0) {
            report.fail("cannot send a chunk: " + std::to_string(result));
        }
    }

    std::string client_;  // who waits for the connection; empty: nobody
    std::uint32_t round_ = 0;
    std::uint32_t ticksLeft_ = 0;
    std::uint32_t played_ = 0;  // bytes; 0: not yet
};

}  // namespace

std::unique_ptr<Server> makeConnectionMgr(const Wiring& wiring) {
    return std::make_unique<ConnectionMgr>(wiring);
}

}  // namespace demo
