#include <fcntl.h>
#include <grp.h>
#include <sched.h>
#include <sys/file.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iceoryx_hoofs/log/logmanager.hpp>
#include <iceoryx_posh/popo/untyped_publisher.hpp>
#include <iceoryx_posh/popo/untyped_subscriber.hpp>
#include <iceoryx_posh/popo/wait_set.hpp>
#include <iceoryx_posh/runtime/posh_runtime.hpp>

#include "bench/harness/service.h"
#include "bench/peers/list.h"

namespace bench {

namespace {

using iox::popo::UntypedPublisher;
using iox::popo::UntypedSubscriber;

constexpr const char* daemonName = "iox-roudi";
constexpr unsigned mostSources = 16;  // as many as send to one receiver in any scenario

iox::capro::IdString_t Text(const std::string& text) {
    return {iox::cxx::TruncateToCapacity, text};
}

iox::capro::ServiceDescription ServiceOf(unsigned sender) {
    return {"bench", "messages", Text(std::to_string(sender))};
}

std::unique_ptr<UntypedPublisher> Publish(unsigned self) {
    iox::popo::PublisherOptions options;
    options.subscriberTooSlowPolicy = iox::popo::ConsumerTooSlowPolicy::WAIT_FOR_CONSUMER;
    return std::make_unique<UntypedPublisher>(ServiceOf(self), options);
}

std::unique_ptr<UntypedSubscriber> Subscribe(unsigned sender) {
    iox::popo::SubscriberOptions options;
    options.queueCapacity = iox::MAX_SUBSCRIBER_QUEUE_CAPACITY;
    options.queueFullPolicy = iox::popo::QueueFullPolicy::BLOCK_PRODUCER;
    return std::make_unique<UntypedSubscriber>(ServiceOf(sender), options);
}

/// Loaned chunks, published; the application's copy of a message is copied into the chunk and read in place.
class IceoryxEnd : public PlainEnd {
public:
    IceoryxEnd(const Layout& chosen, unsigned process, bool looking)
        : PlainEnd(chosen.payload), layout(chosen), polls(looking) {
        for (unsigned sender = 0; sender < layout.processes; ++sender) {
            const bool toUs = layout.pattern == Pattern::roundTrip || layout.ReceiverOf(sender) == process;
            if (toUs && sender != process) in.push_back(Subscribe(sender));
        }
        sends = layout.pattern == Pattern::roundTrip || layout.ReceiverOf(process) != process;
        if (sends) out = Publish(process);
        for (const auto& source : in) {
            const bool attached = !waiting.attachState(*source, iox::popo::SubscriberState::HAS_DATA).has_error();
            Expect(attached, "a subscriber cannot be waited for");
        }
    }
    ~IceoryxEnd() override { GiveBack(); }

    void Connect() override {
        while (sends && !out->hasSubscribers()) sched_yield();
        for (const auto& source : in) {
            while (source->getSubscriptionState() != iox::SubscribeState::SUBSCRIBED) sched_yield();
        }
    }

    View Receive() override {
        GiveBack();
        while (!Take()) Await();
        return {static_cast<const char*>(taken), layout.payload};
    }

private:
    void Transmit(View message) override {
        bool sent = false;
        out->loan(static_cast<std::uint32_t>(message.size)).and_then([&](void* chunk) {
            std::memcpy(chunk, message.bytes, message.size);
            out->publish(chunk);
            sent = true;
        });
        Expect(sent, "no chunk to loan");
    }

    bool Take() {
        for (std::size_t tried = 0; tried < in.size() && taken == nullptr; ++tried) {
            next = next + 1 == in.size() ? 0 : next + 1;
            in[next]->take().and_then([&](const void* chunk) { taken = chunk; });
        }
        return taken != nullptr;
    }

    void Await() {
        if (!polls) {
            waiting.wait();
        } else if (layout.placement == Placement::one || ++looks % 4096 == 0) {
            sched_yield();
        }
    }

    void GiveBack() {
        if (taken != nullptr) in[next]->release(taken);
        taken = nullptr;
    }

    Layout layout;
    bool polls;
    bool sends;
    std::unique_ptr<UntypedPublisher> out;
    std::vector<std::unique_ptr<UntypedSubscriber>> in;
    iox::popo::WaitSet<mostSources> waiting;
    std::size_t next = 0;
    const void* taken = nullptr;
    unsigned looks = 0;
};

/// Room for what full queues hold and no more: the daemon clears it all before it is ready.
std::string Configure(const Layout& layout) {
    const std::string file = layout.directory + "/roudi.toml";
    std::ofstream(file) << "[general]\nversion = 1\n[[segment]]\n[[segment.mempool]]\nsize = "
                        << (layout.payload + 127) / 64 * 64
                        << "\ncount = " << layout.processes * (iox::MAX_SUBSCRIBER_QUEUE_CAPACITY + 16) << '\n';
    return file;
}

/// The memory of the messages is named after the group that may write to it.
std::string SegmentFile() {
    const group* own = getgrgid(getegid());
    return std::string("/dev/shm/") + (own != nullptr ? own->gr_name : "");
}

/// The machine has one daemon at a time: whoever else measures waits here.
class OnlyDaemon {
public:
    OnlyDaemon() : program(open(FindProgram(daemonName).c_str(), O_RDONLY | O_CLOEXEC)) {
        Check(flock(program, LOCK_EX) == 0, daemonName);
    }
    ~OnlyDaemon() { close(program); }
    OnlyDaemon(const OnlyDaemon&) = delete;
    OnlyDaemon& operator=(const OnlyDaemon&) = delete;

private:
    int program;
};

class IceoryxSession : public Session {
public:
    IceoryxSession(const Layout& chosen, bool looking)
        : layout(chosen),
          polls(looking),
          daemon({daemonName, "--monitoring-mode", "off", "--kill-delay", "0", "--config-file", Configure(layout)},
                 layout.placement, "ready for clients") {}

    /// Those that are killed leave their files. The daemon's are ours as long as it lives, since there is but one.
    ~IceoryxSession() override {
        std::vector<std::string> files = {"/tmp/roudi", "/tmp/iox-unique-roudi.lock", "/dev/shm/iceoryx_mgmt",
                                          SegmentFile()};
        for (unsigned process = 0; process < layout.processes; ++process) {
            files.push_back("/tmp/" + RuntimeOf(process));
            files.push_back("/tmp/" + RuntimeOf(process) + ".lock");
        }
        std::error_code ignored;
        for (const std::string& file : files) std::filesystem::remove(file, ignored);
    }

    std::unique_ptr<End> Open(unsigned self) override {
        iox::log::LogManager::GetLogManager().SetDefaultLogLevel(iox::log::LogLevel::kError,
                                                                 iox::log::LogLevelOutput::kHideLogLevel);
        iox::runtime::PoshRuntime::initRuntime({iox::cxx::TruncateToCapacity, RuntimeOf(self)});
        return std::make_unique<IceoryxEnd>(layout, self, polls);
    }

    std::vector<pid_t> Daemons() const override { return {daemon.Pid()}; }

private:
    std::string RuntimeOf(unsigned process) const {
        return "linx-bench-" + std::to_string(harness) + '-' + std::to_string(process);
    }

    pid_t harness = getpid();
    Layout layout;
    bool polls;
    OnlyDaemon only;
    Service daemon;
};

class Iceoryx : public Peer {
public:
    explicit Iceoryx(bool looking) : polls(looking) {}
    std::string Name() const override { return polls ? iceoryxPollingName : iceoryxName; }
    bool Blocks() const override { return !polls; }
    std::unique_ptr<Session> Begin(const Layout& layout) const override {
        return std::make_unique<IceoryxSession>(layout, polls);
    }

private:
    bool polls;
};

}  // namespace

std::unique_ptr<Peer> MakeIceoryx() {
    return std::make_unique<Iceoryx>(false);
}

std::unique_ptr<Peer> MakeIceoryxPolling() {
    return std::make_unique<Iceoryx>(true);
}

}  // namespace bench
