#include <fcntl.h>
#include <mqueue.h>
#include <unistd.h>

#include <fstream>

#include "bench/peers/list.h"

namespace bench {

namespace {

constexpr long queueLength = 10;  // what everybody may have

/// A queue for each process, from which it alone receives.
struct MessageQueueSession : Session {
    explicit MessageQueueSession(const Layout& chosen) : Session(chosen) {
        for (unsigned process = 0; process < layout.processes; ++process) {
            mq_attr attributes = {};
            attributes.mq_maxmsg = queueLength;
            attributes.mq_msgsize = static_cast<long>(layout.payload);
            const std::string name = "/linx-bench." + std::to_string(getpid()) + '.' + std::to_string(process);
            const mqd_t queue = mq_open(name.c_str(), O_RDWR | O_CREAT | O_EXCL, 0600, &attributes);
            mq_unlink(name.c_str());  // those forked later have it open
            check(queue != -1, "mq_open");
            queues.push_back(queue);
        }
    }
    ~MessageQueueSession() override {
        for (const mqd_t queue : queues) mq_close(queue);
    }

    static bool runsHere() { return access("/proc/sys/fs/mqueue", F_OK) == 0; }

    static bool takes(const Layout& layout) {
        std::size_t largest = 0;  // an ordinary user's, whoever runs this
        std::ifstream("/proc/sys/fs/mqueue/msgsize_max") >> largest;
        return layout.payload <= largest;
    }

    std::vector<mqd_t> queues;
};

class MessageQueueEnd : public PlainEnd {
public:
    MessageQueueEnd(const MessageQueueSession& session, unsigned self)
        : PlainEnd(session.layout.payload),
          incoming_(session.layout.payload),
          in_(session.queues[self]),
          out_(session.queues[session.layout.reachedBy(self)]) {}

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

}  // namespace

const Peer messageQueue = peerOf<MessageQueueEnd, MessageQueueSession>(messageQueueName);

}  // namespace bench
