#include <fcntl.h>
#include <mqueue.h>
#include <unistd.h>

#include <fstream>

#include "bench/peers/list.h"

namespace bench {

namespace {

constexpr long queueLength = 10;  // what everybody may have

/// A queue for each process, from which it alone receives.
class MessageQueueSession : public Session {
public:
    explicit MessageQueueSession(const Layout& chosen) : layout(chosen) {
        for (unsigned process = 0; process < layout.processes; ++process) {
            mq_attr attributes = {};
            attributes.mq_maxmsg = queueLength;
            attributes.mq_msgsize = static_cast<long>(layout.payload);
            const std::string name = "/linx-bench." + std::to_string(getpid()) + '.' + std::to_string(process);
            const mqd_t queue = mq_open(name.c_str(), O_RDWR | O_CREAT | O_EXCL, 0600, &attributes);
            mq_unlink(name.c_str());  // those forked later have it open
            Check(queue != -1, "mq_open");
            queues.push_back(queue);
        }
    }
    ~MessageQueueSession() override {
        for (const mqd_t queue : queues) mq_close(queue);
    }

    std::unique_ptr<End> Open(unsigned self) override;

private:
    Layout layout;
    std::vector<mqd_t> queues;
};

class MessageQueueEnd : public PlainEnd {
public:
    MessageQueueEnd(std::size_t payload, mqd_t input, mqd_t output)
        : PlainEnd(payload), incoming(payload), in(input), out(output) {}

    View Receive() override {
        const ssize_t size = mq_receive(in, incoming.data(), incoming.size(), nullptr);
        Check(size > 0, "mq_receive");
        return {incoming.data(), static_cast<std::size_t>(size)};
    }

private:
    void Transmit(View message) override { Check(mq_send(out, message.bytes, message.size, 0) == 0, "mq_send"); }

    std::vector<char> incoming;
    mqd_t in, out;
};

std::unique_ptr<End> MessageQueueSession::Open(unsigned self) {
    const unsigned receiver = layout.pattern == Pattern::roundTrip ? 1 - self : layout.ReceiverOf(self);
    return std::make_unique<MessageQueueEnd>(layout.payload, queues[self], queues[receiver]);
}

class MessageQueue : public Peer {
public:
    std::string Name() const override { return messageQueueName; }

    bool Takes(const Layout& layout) const override {
        std::size_t largest = 0;  // an ordinary user's, whoever runs this
        std::ifstream("/proc/sys/fs/mqueue/msgsize_max") >> largest;
        return layout.payload <= largest;
    }

    std::unique_ptr<Session> Begin(const Layout& layout) const override {
        return std::make_unique<MessageQueueSession>(layout);
    }
};

}  // namespace

std::unique_ptr<Peer> MakeMessageQueue() {
    return std::make_unique<MessageQueue>();
}

}  // namespace bench
