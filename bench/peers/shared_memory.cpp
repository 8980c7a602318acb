#include <sched.h>

#include <atomic>

#include "bench/harness/shared.h"
#include "bench/peers/list.h"
#include "bench/peers/window.h"

namespace bench {

namespace {

void relax() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__) || defined(__arm__)
    asm volatile("yield");
#endif
}

/// Counters of a ring, each written by one side.
struct Counters {
    alignas(64) std::atomic<std::uint64_t> written{0};
    alignas(64) std::atomic<std::uint64_t> read{0};
};

/// A ring of slots between one sender and one receiver, who look until there is something to do.
struct Ring {
    Ring(std::size_t messageSize, bool alone)
        : payload(messageSize),
          stride((messageSize + 63) / 64 * 64),
          slots(windowFor(messageSize)),
          oneCore(alone),
          bytes(stride * slots) {}

    char* slot(std::uint64_t message) const { return &bytes[message % slots * stride]; }

    template <class Condition>
    void await(Condition condition) const {
        // Whoever shares a core with the other must leave it to him; otherwise only when there are too few cores.
        for (unsigned looks = 1; !condition(); ++looks) {
            if (oneCore || looks % 4096 == 0) {
                sched_yield();
            } else {
                relax();
            }
        }
    }

    std::size_t payload, stride, slots;
    bool oneCore;
    Shared<Counters> counters;
    Shared<char> bytes;
};

/// Not a way to talk but the limit of all that copy: in by the sender, out by the receiver, and nothing else.
struct SharedMemorySession : Session {
    explicit SharedMemorySession(const Layout& chosen) : Session(chosen) {
        for (unsigned i = 0; i < layout.processes; ++i) {
            rings.push_back(std::make_unique<Ring>(layout.payload, layout.placement == Placement::one));
        }
    }

    static constexpr bool blocks = false;

    std::vector<std::unique_ptr<Ring>> rings;
};

class SharedMemoryEnd : public PlainEnd {
public:
    SharedMemoryEnd(const SharedMemorySession& session, unsigned self)
        : PlainEnd(session.layout.payload), incoming_(session.layout.payload), out_(*session.rings[self]) {
        for (const unsigned sender : session.layout.sendersTo(self)) in_.push_back(session.rings[sender].get());
    }

    View receive() override {
        const Ring& ring = filled();
        const std::uint64_t message = ring.counters->read.load(std::memory_order_relaxed);
        std::memcpy(incoming_.data(), ring.slot(message), ring.payload);
        ring.counters->read.store(message + 1, std::memory_order_release);
        return {incoming_.data(), incoming_.size()};
    }

private:
    void transmit(View message) override {
        const std::uint64_t number = out_.counters->written.load(std::memory_order_relaxed);
        if (number - readSeen_ == out_.slots) {
            out_.await([&] {
                readSeen_ = out_.counters->read.load(std::memory_order_acquire);
                return number - readSeen_ < out_.slots;
            });
        }
        std::memcpy(out_.slot(number), message.bytes, message.size);
        out_.counters->written.store(number + 1, std::memory_order_release);
    }

    const Ring& filled() {
        const Ring* filled = nullptr;
        in_.front()->await([&] {
            for (std::size_t i = 0; i < in_.size() && filled == nullptr; ++i) {
                next_ = next_ + 1 == in_.size() ? 0 : next_ + 1;
                const Counters& counters = *in_[next_]->counters;
                const std::uint64_t read = counters.read.load(std::memory_order_relaxed);
                if (counters.written.load(std::memory_order_acquire) != read) filled = in_[next_];
            }
            return filled != nullptr;
        });
        return *filled;
    }

    std::vector<char> incoming_;
    Ring& out_;
    std::vector<Ring*> in_;
    std::size_t next_ = 0;
    std::uint64_t readSeen_ = 0;
};

}  // namespace

const Peer bareMemory = peerOf<SharedMemoryEnd, SharedMemorySession>(bareMemoryName);

}  // namespace bench
