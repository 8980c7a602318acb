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
        On<&ConnectionMgr::OnConnect>(m_Connect, this);
        On<&ConnectionMgr::OnTick>(m_Tick, this);
        On<&ConnectionMgr::OnStreamPlayed>(m_StreamPlayed, this);
    }

private:
    void OnConnect(IpcMessage& message) {
        client = message.GetSender();
        round = Unpack<Connect>(message).round;
        ticksLeft = config.ticksPerConnect;
        played = 0;
        report.Say("connects for " + client + ", which takes " + std::to_string(ticksLeft) + " ticks");
        SendStream();
    }

    void OnTick(IpcMessage&) {
        if (ticksLeft > 0) --ticksLeft;
        AnswerWhenDone();
    }

    void OnStreamPlayed(IpcMessage& message) {
        played = Unpack<StreamPlayed>(message).bytes;
        AnswerWhenDone();
    }

    void AnswerWhenDone() {
        if (client.empty() || ticksLeft > 0 || played == 0) return;
        Tell(client, m_Connected, Connected{round, played});
        report.Say("is connected and answers " + client);
        client.clear();
    }

    void SendStream() {
        const std::vector<char> content = StreamContent(config.seed, round, config.payload);
        Checksum sum;
        sum.Add(content.data(), content.size());
        StreamChunk head{};
        head.round = round;
        head.count = ChunkCount(config.payload);
        head.checksum = sum.Value();
        for (; head.sequence < head.count; ++head.sequence) {
            const std::uint32_t sent = head.sequence * chunkBytes;
            head.bytes = std::min(chunkBytes, config.payload - sent);
            SendChunk(head, content.data() + sent);
        }
        report.Say("has sent " + std::to_string(config.payload) + " bytes in " + std::to_string(head.count) +
                   " signals to StreamMgr");
    }

    void SendChunk(const StreamChunk& head, const char* bytes) {
        IpcMessage message;
        message.Allocate(m_StreamChunk, static_cast<unsigned>(sizeof head) + head.bytes, nullptr);
        message.Fill(reinterpret_cast<const char*>(&head), sizeof head);
        message.Fill(bytes, head.bytes);
        if (const int result = ipc.Notify(Name(e_StreamMgr), message, true); result != 0) {
            report.Fail("cannot send a chunk: " + std::to_string(result));
        }
    }

    std::string client;  // who waits for the connection; empty: nobody
    std::uint32_t round = 0;
    std::uint32_t ticksLeft = 0;
    std::uint32_t played = 0;  // bytes; 0: not yet
};

}  // namespace

std::unique_ptr<Server> MakeConnectionMgr(const Wiring& wiring) {
    return std::make_unique<ConnectionMgr>(wiring);
}

}  // namespace demo
