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
    explicit MessageQueueSession(const Layout& chosen) : layout_(chosen) {
        for (unsigned process = 0; process < layout_.processes; ++process) {
            mq_attr attributes = {};
            attributes.mq_maxmsg = queueLength;
            attributes.mq_msgsize = static_cast<long>(layout_.payload);
            const std::string name = "/linx-bench." + std::to_string(getpid()) + '.' + std::to_string(process);
            const mqd_t queue = mq_open(name.c_str(), O_RDWR | O_CREAT | O_EXCL, 0600, &attributes);
            mq_unlink(name.c_str());  // those forked later have it open
            check(queue != -1, "mq_open");
            queues_.push_back(queue);
        }
    }
    ~MessageQueueSession() override {
        for (const mqd_t queue : queues_) mq_close(queue);
    }

    std::unique_ptr<End> open(unsigned self) override;

private:
    Layout layout_;
    std::vector<mqd_t> queues_;
};

class MessageQueueEnd : public PlainEnd {
public:
    MessageQueueEnd(std::size_t payload, mqd_t input, mqd_t output)
        : PlainEnd(payload), incoming_(payload), in_(input), out_(output) {}

    View receive() override {
        const ssize_t size = mq_receive(in_, incoming_.data(), incoming_.size(), nullptr);
        check(size > 0, "mq_receive");
        return {incoming_.data(), static_cast<std::size_t>(size)};
    }

private:
    void transmit(View message) override { check(mq_send(out_, message.bytes, message.size, 0) == 0, "mq_send"); }

    std::vector<char> incoming_;
    mqd_t in_, out_;
};

std::unique_ptr<End> MessageQueueSession::open(unsigned self) {
    const unsigned receiver = layout_.pattern == Pattern::roundTrip ? 1 - self : layout_.receiverOf(self);
    return std::make_unique<MessageQueueEnd>(layout_.payload, queues_[self], queues_[receiver]);
}

class MessageQueue : public Peer {
public:
    std::string name() const override { return messageQueueName; }

    bool takes(const Layout& layout) const override {
        std::size_t largest = 0;  // an ordinary user's, whoever runs this
        std::ifstream("/proc/sys/fs/mqueue/msgsize_max") >> largest;
        return layout.payload <= largest;
    }

    std::unique_ptr<Session> begin(const Layout& layout) const override {
        return std::make_unique<MessageQueueSession>(layout);
    }
};

}  // namespace

std::unique_ptr<Peer> makeMessageQueue() {
    return std::make_unique<MessageQueue>();
}

}  // namespace bench
