#include <sched.h>

#include <atomic>

#include "bench/harness/shared.h"
#include "bench/peers/list.h"
#include "bench/peers/window.h"

namespace bench {

namespace {

void Relax() {
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
          slots(WindowFor(messageSize)),
          oneCore(alone),
          bytes(stride * slots) {}

    char* Slot(std::uint64_t message) const { return &bytes[message % slots * stride]; }

    template <class Condition>
    void Await(Condition condition) const {
        // Whoever shares a core with the other must leave it to him; otherwise only when there are too few cores.
        for (unsigned looks = 1; !condition(); ++looks) {
            if (oneCore || looks % 4096 == 0) {
                sched_yield();
            } else {
                Relax();
            }
        }
    }

    std::size_t payload, stride, slots;
    bool oneCore;
    Shared<Counters> counters;
    Shared<char> bytes;
};

class SharedMemoryEnd : public PlainEnd {
public:
    SharedMemoryEnd(Ring& output, std::vector<Ring*> sources)
        : PlainEnd(output.payload), incoming(output.payload), out(output), in(std::move(sources)) {}

    View Receive() override {
        const Ring& ring = Filled();
        const std::uint64_t message = ring.counters->read.load(std::memory_order_relaxed);
        std::memcpy(incoming.data(), ring.Slot(message), ring.payload);
        ring.counters->read.store(message + 1, std::memory_order_release);
        return {incoming.data(), incoming.size()};
    }

private:
    void Transmit(View message) override {
        const std::uint64_t number = out.counters->written.load(std::memory_order_relaxed);
        if (number - readSeen == out.slots) {
            out.Await([&] {
                readSeen = out.counters->read.load(std::memory_order_acquire);
                return number - readSeen < out.slots;
            });
        }
        std::memcpy(out.Slot(number), message.bytes, message.size);
        out.counters->written.store(number + 1, std::memory_order_release);
    }

    const Ring& Filled() {
        const Ring* filled = nullptr;
        in.front()->Await([&] {
            for (std::size_t i = 0; i < in.size() && filled == nullptr; ++i) {
                next = next + 1 == in.size() ? 0 : next + 1;
                const Counters& counters = *in[next]->counters;
                const std::uint64_t read = counters.read.load(std::memory_order_relaxed);
                if (counters.written.load(std::memory_order_acquire) != read) filled = in[next];
            }
            return filled != nullptr;
        });
        return *filled;
    }

    std::vector<char> incoming;
    Ring& out;
    std::vector<Ring*> in;
    std::size_t next = 0;
    std::uint64_t readSeen = 0;
};

class SharedMemorySession : public Session {
public:
    explicit SharedMemorySession(const Layout& chosen) : layout(chosen) {
        for (unsigned i = 0; i < layout.processes; ++i) {
            rings.push_back(std::make_unique<Ring>(layout.payload, layout.placement == Placement::one));
        }
    }

    std::unique_ptr<End> Open(unsigned self) override {
        std::vector<Ring*> sources;
        if (layout.pattern == Pattern::roundTrip) {
            sources.push_back(rings[1 - self].get());
        } else {
            for (unsigned sender = 0; sender < layout.processes; ++sender) {
                if (layout.ReceiverOf(sender) == self && sender != self) sources.push_back(rings[sender].get());
            }
        }
        return std::make_unique<SharedMemoryEnd>(*rings[self], sources);
    }

private:
    Layout layout;
    std::vector<std::unique_ptr<Ring>> rings;
};

/// Not a way to talk but the limit of all that copy: in by the sender, out by the receiver, and nothing else.
class SharedMemory : public Peer {
public:
    std::string Name() const override { return bareMemoryName; }
    bool Blocks() const override { return false; }
    std::unique_ptr<Session> Begin(const Layout& layout) const override {
        return std::make_unique<SharedMemorySession>(layout);
    }
};

}  // namespace

std::unique_ptr<Peer> MakeSharedMemory() {
    return std::make_unique<SharedMemory>();
}

}  // namespace bench
