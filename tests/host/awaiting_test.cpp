// A receive that awaits certain signals while it gives way to one who sends others.

#include <sched.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <functional>
#include <utility>

#include "tests/host/endpoints.h"

namespace {

std::function<void()> whoRunsMeanwhile;
std::function<void()> whoRunsAtALook;
time_t secondsSkipped = 0;

}  // namespace

/// Whoever gives way lets the one run that the test names.
extern "C" int sched_yield() noexcept {
    if (!whoRunsMeanwhile) return static_cast<int>(syscall(SYS_sched_yield));
    whoRunsMeanwhile();
    return 0;
}

/// Whoever looks at the clock lets the one run that the test names, and finds it a second later.
extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept {
    if (const auto runs = std::exchange(whoRunsAtALook, nullptr)) {
        runs();
        ++secondsSkipped;
        whoRunsAtALook = runs;
    }
    const int result = static_cast<int>(syscall(SYS_clock_gettime, clock, time));
    time->tv_sec += secondsSkipped;
    return result;
}

namespace linx {
namespace {

using linxtest::Linx;

constexpr uint32_t awaited = 1;
constexpr uint32_t other = 2;
constexpr uint32_t onlyAwaited[] = {1, awaited};

/// Keeps this thread on one processor, where a receive gives way instead of looking.
class OneProcessor {
public:
    OneProcessor() {
        EXPECT_EQ(sched_getaffinity(0, sizeof before_, &before_), 0);
        cpu_set_t one;
        CPU_ZERO(&one);
        for (int processor = 0; processor < CPU_SETSIZE && CPU_COUNT(&one) == 0; ++processor) {
            if (CPU_ISSET(processor, &before_)) CPU_SET(processor, &one);
        }
        EXPECT_EQ(sched_setaffinity(0, sizeof one, &one), 0);
    }
    ~OneProcessor() { sched_setaffinity(0, sizeof before_, &before_); }
    OneProcessor(const OneProcessor&) = delete;
    OneProcessor& operator=(const OneProcessor&) = delete;

private:
    cpu_set_t before_;
};

/// A receiver on one processor, and one who sends it what it does not await, whenever it gives way.
struct Meeting {
    static constexpr uint32_t most = 100000;

    ~Meeting() { whoRunsMeanwhile = nullptr; }

    void begin(const std::function<void()>& first = {}) {
        whoRunsMeanwhile = [this, first] {
            if (sent == 0 && first) first();
            LinxSignal* signal = sent < most ? linx_alloc(sender, 4, other) : nullptr;
            if (signal != nullptr) linx_send(sender, &signal, receiver.spid);
            ++sent;
        };
    }

    const OneProcessor processor;
    const linxtest::ScopedVariable patience{"LINX_SPIN_US", "1000"};
    Linx receiver{"receiver"};
    Linx sender{"sender"};
    uint32_t sent = 0;
};

using AwaitingTest = linxtest::ArenaDomainTest;

TEST_F(AwaitingTest, EndsAtItsDeadline) {
    Meeting meeting;
    meeting.begin();
    LinxSignal* signal = nullptr;
    EXPECT_EQ(linx_receive_w_tmo(meeting.receiver, &signal, 1, onlyAwaited), 0);
    EXPECT_LT(meeting.sent, Meeting::most) << "it waited as long as somebody sent";
}

TEST_F(AwaitingTest, EndsAtItsDeadlineAlsoWhenASignalForestallsEverySleep) {
    Linx receiver("receiver");
    Linx sender("sender");
    constexpr uint32_t most = 10000;
    uint32_t sent = 0;
    whoRunsAtALook = [&] {
        LinxSignal* signal = sent < most ? linx_alloc(sender, 4, other) : nullptr;
        if (signal != nullptr) linx_send(sender, &signal, receiver.spid);
        ++sent;
    };
    LinxSignal* signal = nullptr;
    EXPECT_EQ(linx_receive_w_tmo(receiver, &signal, 10000, onlyAwaited), 0);
    whoRunsAtALook = nullptr;
    EXPECT_LT(sent, 100u) << "it waited as long as somebody sent";
}

TEST_F(AwaitingTest, GetsATimeoutThatFallsDue) {
    Meeting meeting;
    LinxSignal* timeout = linx_alloc(meeting.receiver, 4, awaited);
    ASSERT_NE(linx_request_tmo(meeting.receiver, 1, &timeout), 0u);
    meeting.begin();
    LinxSignal* signal = nullptr;
    ASSERT_EQ(linx_receive(meeting.receiver, &signal, onlyAwaited), 4);
    EXPECT_LT(meeting.sent, Meeting::most) << "it waited as long as somebody sent";
    linx_free_buf(meeting.receiver, &signal);
}

TEST_F(AwaitingTest, IsToldOfAnEnd) {
    Meeting meeting;
    Linx supervised("supervised");
    LinxSignal* notice = linx_alloc(meeting.receiver, 4, awaited);
    ASSERT_NE(linx_attach(meeting.receiver, &notice, supervised.spid), 0u);
    meeting.begin([&] { supervised.reset(); });
    LinxSignal* signal = nullptr;
    ASSERT_EQ(linx_receive(meeting.receiver, &signal, onlyAwaited), 4);
    EXPECT_LT(meeting.sent, Meeting::most) << "it waited as long as somebody sent";
    linx_free_buf(meeting.receiver, &signal);
}

}  // namespace
}  // namespace linx
