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

class SharedMemoryEnd : public PlainEnd {
public:
    SharedMemoryEnd(Ring& output, std::vector<Ring*> sources)
        : PlainEnd(output.payload), incoming_(output.payload), out_(output), in_(std::move(sources)) {}

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

class SharedMemorySession : public Session {
public:
    explicit SharedMemorySession(const Layout& chosen) : layout_(chosen) {
        for (unsigned i = 0; i < layout_.processes; ++i) {
            rings_.push_back(std::make_unique<Ring>(layout_.payload, layout_.placement == Placement::one));
        }
    }

    std::unique_ptr<End> open(unsigned self) override {
        std::vector<Ring*> sources;
        if (layout_.pattern == Pattern::roundTrip) {
            sources.push_back(rings_[1 - self].get());
        } else {
            for (unsigned sender = 0; sender < layout_.processes; ++sender) {
                if (layout_.receiverOf(sender) == self && sender != self) sources.push_back(rings_[sender].get());
            }
        }
        return std::make_unique<SharedMemoryEnd>(*rings_[self], sources);
    }

private:
    Layout layout_;
    std::vector<std::unique_ptr<Ring>> rings_;
};

/// Not a way to talk but the limit of all that copy: in by the sender, out by the receiver, and nothing else.
class SharedMemory : public Peer {
public:
    std::string name() const override { return bareMemoryName; }
    bool blocks() const override { return false; }
    std::unique_ptr<Session> begin(const Layout& layout) const override {
        return std::make_unique<SharedMemorySession>(layout);
    }
};

}  // namespace

std::unique_ptr<Peer> makeSharedMemory() {
    return std::make_unique<SharedMemory>();
}

}  // namespace bench
