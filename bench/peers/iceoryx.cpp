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

iox::capro::IdString_t idFrom(const std::string& text) {
    return {iox::cxx::TruncateToCapacity, text};
}

iox::capro::ServiceDescription serviceOf(unsigned sender) {
    return {"bench", "messages", idFrom(std::to_string(sender))};
}

std::unique_ptr<UntypedPublisher> publish(unsigned self) {
    iox::popo::PublisherOptions options;
    options.subscriberTooSlowPolicy = iox::popo::ConsumerTooSlowPolicy::WAIT_FOR_CONSUMER;
    return std::make_unique<UntypedPublisher>(serviceOf(self), options);
}

std::unique_ptr<UntypedSubscriber> subscribe(unsigned sender) {
    iox::popo::SubscriberOptions options;
    options.queueCapacity = iox::MAX_SUBSCRIBER_QUEUE_CAPACITY;
    options.queueFullPolicy = iox::popo::QueueFullPolicy::BLOCK_PRODUCER;
    return std::make_unique<UntypedSubscriber>(serviceOf(sender), options);
}

/// Room for what full queues hold and no more: the daemon clears it all before it is ready.
std::string configure(const Layout& layout) {
    const std::string file = layout.directory + "/roudi.toml";
    std::ofstream(file) << "[general]\nversion = 1\n[[segment]]\n[[segment.mempool]]\nsize = "
                        << (layout.payload + 127) / 64 * 64
                        << "\ncount = " << layout.processes * (iox::MAX_SUBSCRIBER_QUEUE_CAPACITY + 16) << '\n';
    return file;
}

/// The memory of the messages is named after the group that may write to it.
std::string segmentFile() {
    const group* own = getgrgid(getegid());
    return std::string("/dev/shm/") + (own != nullptr ? own->gr_name : "");
}

/// The machine has one daemon at a time: whoever else measures waits here.
class OnlyDaemon {
public:
    OnlyDaemon() : program_(open(findProgram(daemonName).c_str(), O_RDONLY | O_CLOEXEC)) {
        check(flock(program_, LOCK_EX) == 0, daemonName);
    }
    ~OnlyDaemon() { close(program_); }
    OnlyDaemon(const OnlyDaemon&) = delete;
    OnlyDaemon& operator=(const OnlyDaemon&) = delete;

private:
    int program_;
};

struct IceoryxSession : Session {
    explicit IceoryxSession(const Layout& chosen, bool looking = false)
        : Session(chosen),
          polls(looking),
          daemon({daemonName, "--monitoring-mode", "off", "--kill-delay", "0", "--config-file", configure(layout)},
                 layout.placement, "ready for clients") {
        daemons = {daemon.pid()};
    }

    /// Those that are killed leave their files. The daemon's are ours as long as it lives, since there is but one.
    ~IceoryxSession() override {
        std::vector<std::string> files = {"/tmp/roudi", "/tmp/iox-unique-roudi.lock", "/dev/shm/iceoryx_mgmt",
                                          segmentFile()};
        for (unsigned process = 0; process < layout.processes; ++process) {
            files.push_back("/tmp/" + runtimeOf(process));
            files.push_back("/tmp/" + runtimeOf(process) + ".lock");
        }
        std::error_code ignored;
        for (const std::string& file : files) std::filesystem::remove(file, ignored);
    }

    static bool runsHere() { return !findProgram(daemonName).empty(); }

    std::string runtimeOf(unsigned process) const {
        return "linx-bench-" + std::to_string(harness) + '-' + std::to_string(process);
    }

    pid_t harness = getpid();
    bool polls;
    OnlyDaemon only;
    Service daemon;
};

struct IceoryxPollingSession : IceoryxSession {
    explicit IceoryxPollingSession(const Layout& chosen) : IceoryxSession(chosen, true) {}
    static constexpr bool blocks = false;
};

/// Loaned chunks, published; the application's copy of a message is copied into the chunk and read in place.
class IceoryxEnd : public PlainEnd {
public:
    IceoryxEnd(const IceoryxSession& session, unsigned process)
        : PlainEnd(session.layout.payload),
          layout_(session.layout),
          polls_(session.polls),
          sends_(layout_.reachedBy(process) != process) {
        iox::log::LogManager::GetLogManager().SetDefaultLogLevel(iox::log::LogLevel::kError,
                                                                 iox::log::LogLevelOutput::kHideLogLevel);
        iox::runtime::PoshRuntime::initRuntime({iox::cxx::TruncateToCapacity, session.runtimeOf(process)});
        for (const unsigned sender : layout_.sendersTo(process)) in_.push_back(subscribe(sender));
        if (sends_) out_ = publish(process);
        waiting_ = std::make_unique<iox::popo::WaitSet<mostSources>>();
        for (const auto& source : in_) {
            const bool attached = !waiting_->attachState(*source, iox::popo::SubscriberState::HAS_DATA).has_error();
            expect(attached, "a subscriber cannot be waited for");
        }
    }
    ~IceoryxEnd() override { giveBack(); }

    void connect() override {
        while (sends_ && !out_->hasSubscribers()) sched_yield();
        for (const auto& source : in_) {
            while (source->getSubscriptionState() != iox::SubscribeState::SUBSCRIBED) sched_yield();
        }
    }

    View receive() override {
        giveBack();
        while (!take()) await();
        return {static_cast<const char*>(taken_), layout_.payload};
    }

private:
    void transmit(View message) override {
        bool sent = false;
        out_->loan(static_cast<std::uint32_t>(message.size)).and_then([&](void* chunk) {
            std::memcpy(chunk, message.bytes, message.size);
            out_->publish(chunk);
            sent = true;
        });
        expect(sent, "no chunk to loan");
    }

    bool take() {
        for (std::size_t tried = 0; tried < in_.size() && taken_ == nullptr; ++tried) {
            next_ = next_ + 1 == in_.size() ? 0 : next_ + 1;
            in_[next_]->take().and_then([&](const void* chunk) { taken_ = chunk; });
        }
        return taken_ != nullptr;
    }

    void await() {
        if (!polls_) {
            waiting_->wait();
        } else if (layout_.placement == Placement::one || ++looks_ % 4096 == 0) {
            sched_yield();
        }
    }

    void giveBack() {
        if (taken_ != nullptr) in_[next_]->release(taken_);
        taken_ = nullptr;
    }

    Layout layout_;
    bool polls_;
    bool sends_;
    std::unique_ptr<UntypedPublisher> out_;
    std::vector<std::unique_ptr<UntypedSubscriber>> in_;
    std::unique_ptr<iox::popo::WaitSet<mostSources>> waiting_;  // made when the runtime is there
    std::size_t next_ = 0;
    const void* taken_ = nullptr;
    unsigned looks_ = 0;
};

}  // namespace

const Peer iceoryx = peerOf<IceoryxEnd, IceoryxSession>(iceoryxName);
const Peer iceoryxPolling = peerOf<IceoryxEnd, IceoryxPollingSession>(iceoryxPollingName);

}  // namespace bench
