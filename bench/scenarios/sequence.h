#ifndef LINXIPC_BENCH_SCENARIOS_SEQUENCE_H
#define LINXIPC_BENCH_SCENARIOS_SEQUENCE_H

#include "bench/harness/check.h"
#include "bench/peers/head.h"

namespace bench {

/// Sends the next message of process `self`; the number lies in the message itself.
inline void SendNext(End& end, unsigned self) {
    Head head = HeadOf({end.Outgoing(), sizeof(Head)});
    ++head.number;
    head.sender = self;
    Write(head, end.Outgoing());
    end.Send();
}

/// Sees to it that what arrives from each sender is whole, and comes in its order.
class Sequence {
public:
    Sequence(unsigned processes, std::size_t size) : payload(size), received(processes) {}

    void Follow(View message) {
        const Head head = HeadOf(message);
        Expect(message.size == payload && head.sender < received.size(), "a message is not what was sent");
        Expect(head.number == ++received[head.sender], "a message was lost, doubled or overtaken");
    }

private:
    std::size_t payload;
    std::vector<std::uint64_t> received;
};

}  // namespace bench

#endif
