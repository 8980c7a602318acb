#ifndef LINXIPC_BENCH_SCENARIOS_SEQUENCE_H
#define LINXIPC_BENCH_SCENARIOS_SEQUENCE_H

#include "bench/harness/check.h"
#include "bench/peers/head.h"

namespace bench {

/// Sends the next message of process `self`; the number lies in the message itself.
inline void sendNext(End& end, unsigned self) {
    Head head = headOf({end.outgoing(), sizeof(Head)});
    ++head.number;
    head.sender = self;
    write(head, end.outgoing());
    end.send();
}

/// Sees to it that what arrives from each sender is whole, and comes in its order.
class Sequence {
public:
    Sequence(unsigned processes, std::size_t size) : payload_(size), received_(processes) {}

    void follow(View message) {
        const Head head = headOf(message);
        expect(message.size == payload_ && head.sender < received_.size(), "a message is not what was sent");
        expect(head.number == ++received_[head.sender], "a message was lost, doubled or overtaken");
    }

private:
    std::size_t payload_;
    std::vector<std::uint64_t> received_;
};

}  // namespace bench

#endif
