// A receive that awaits certain signals while it yields to one who sends others.

#include <unistd.h>

#include <cerrno>

#include "tests/host/endpoints.h"
#include "tests/host/interposed.h"
#include "tests/host/one_processor.h"
#include "tests/kit/failing_new.h"

namespace linx {
namespace {

using linxtest::KnownEndpoint;
namespace interposed = linxtest::interposed;

constexpr uint32_t awaited = 1;
constexpr uint32_t other = 2;
constexpr uint32_t onlyAwaited[] = {1, awaited};

class AwaitingTest : public linxtest::ArenaDomainTest {
protected:
    void TearDown() override {
        interposed::reset();
        ArenaDomainTest::TearDown();
    }
};

/// A receiver on one processor, and one who sends it what it does not await, whenever it yields.
struct Meeting {
    static constexpr uint32_t most = 100000;

    ~Meeting() { interposed::reset(); }

    void begin(const std::function<void()>& first = {}) {
        interposed::atYield = [this, first] {
            if (sent == 0 && first) first();
            LinxSignal* signal = sent < most ? linx_alloc(sender, 4, other) : nullptr;
            if (signal != nullptr) linx_send(sender, &signal, receiver.spid);
            ++sent;
        };
    }

    const linxtest::OneProcessor processor;
    const linxtest::ScopedVariable patience{"LINX_SPIN_US", "1000"};
    KnownEndpoint receiver{"receiver"};
    KnownEndpoint sender{"sender"};
    uint32_t sent = 0;
};

TEST_F(AwaitingTest, EndsAtItsDeadline) {
    Meeting meeting;
    meeting.begin();
    LinxSignal* signal = nullptr;
    EXPECT_EQ(linx_receive_w_tmo(meeting.receiver, &signal, 1, onlyAwaited), 0);
    EXPECT_LT(meeting.sent, Meeting::most) << "it waited as long as somebody sent";
}

TEST_F(AwaitingTest, EndsAtItsDeadlineAlsoWhenASignalForestallsEverySleep) {
    KnownEndpoint receiver("receiver");
    KnownEndpoint sender("sender");
    constexpr uint32_t most = 10000;
    uint32_t sent = 0;
    interposed::atClock = [&] {
        LinxSignal* signal = sent < most ? linx_alloc(sender, 4, other) : nullptr;
        if (signal != nullptr) linx_send(sender, &signal, receiver.spid);
        ++sent;
        ++interposed::secondsAhead;
    };
    LinxSignal* signal = nullptr;
    EXPECT_EQ(linx_receive_w_tmo(receiver, &signal, 10000, onlyAwaited), 0);
    EXPECT_LT(sent, 100u) << "it waited as long as somebody sent";
    interposed::reset();
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
    const interposed::StandingClock clock;  // yielding pays each time, so that it never sleeps
    Meeting meeting;
    KnownEndpoint supervised("supervised");
    LinxSignal* notice = linx_alloc(meeting.receiver, 4, awaited);
    ASSERT_NE(linx_attach(meeting.receiver, &notice, supervised.spid), 0u);
    meeting.begin([&] {
        supervised.close();
        interposed::coarseSecondsAhead = 1;  // ends are looked for once a tick
    });
    LinxSignal* signal = nullptr;
    ASSERT_EQ(linx_receive(meeting.receiver, &signal, onlyAwaited), 4);
    EXPECT_LT(meeting.sent, Meeting::most) << "it waited as long as somebody sent";
    linx_free_buf(meeting.receiver, &signal);
}

TEST_F(AwaitingTest, ShowsByItsDescriptorWhatItHadNoMemoryToTake) {
    constexpr uint32_t many = 100;
    const interposed::StandingClock clock;
    Meeting meeting;
    // The sender introduces itself, and reminds the receiver of a backlog, which it does once a tick.
    for (int i = 0; i < 2; ++i) sendNumber(meeting.sender, meeting.receiver.spid, other);
    for (int i = 0; i < 2; ++i) EXPECT_EQ(receiveNumber(meeting.receiver), other);
    EXPECT_EQ(receiveNumber(meeting.receiver), 0u);
    interposed::atYield = [&] {
        for (uint32_t i = 0; i < many; ++i) sendNumber(meeting.sender, meeting.receiver.spid, awaited);
        linxtest::newThatFails = 1;
    };
    LinxSignal* signal = nullptr;
    EXPECT_EQ(linx_receive(meeting.receiver, &signal, onlyAwaited), -1);
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_EQ(linxtest::newThatFails, 0u);
    EXPECT_TRUE(meeting.receiver.readable());
    interposed::reset();
    for (uint32_t i = 0; i < many; ++i) EXPECT_EQ(receiveNumber(meeting.receiver), awaited);
    EXPECT_EQ(receiveNumber(meeting.receiver), 0u);
}

/// A queue of which one signal after the other is taken, while there are always more.
class BatchTest : public AwaitingTest {
protected:
    static constexpr uint32_t batch = 100;
    static constexpr uint32_t fromBatch = 7;
    static constexpr uint32_t sentLater = 8;

    void takeFirstOfBatch() {
        EXPECT_EQ(receiveNumber(receiver), 0u);  // has looked for ends in this tick
        for (uint32_t i = 0; i < batch; ++i) sendNumber(sender, receiver.spid, fromBatch);
        EXPECT_EQ(receiveNumber(receiver), fromBatch);
    }

    /// What happens before the second receive comes behind the batch, and before all that is sent after it.
    void expectBehindBatch(uint32_t number) {
        EXPECT_EQ(receiveNumber(receiver), fromBatch);
        sendNumber(sender, receiver.spid, sentLater);
        for (uint32_t i = 2; i < batch; ++i) EXPECT_EQ(receiveNumber(receiver), fromBatch);
        EXPECT_EQ(receiveNumber(receiver), number);
        EXPECT_EQ(receiveNumber(receiver), sentLater);
        EXPECT_EQ(receiveNumber(receiver), 0u);
    }

    void TearDown() override {
        receiver.close();
        sender.close();
        AwaitingTest::TearDown();
    }

    const interposed::StandingClock clock;
    KnownEndpoint receiver{"receiver"};
    KnownEndpoint sender{"sender"};
};

TEST_F(BatchTest, DoesNotKeepTheNoticeOfAnEndWaiting) {
    constexpr uint32_t end = 9;
    KnownEndpoint supervised("supervised");
    LinxSignal* notice = linx_alloc(receiver, 4, end);
    ASSERT_NE(linx_attach(receiver, &notice, supervised.spid), 0u);
    takeFirstOfBatch();
    supervised.close();
    interposed::coarseSecondsAhead = 1;
    expectBehindBatch(end);
}

TEST_F(BatchTest, DoesNotKeepATimeoutWaiting) {
    ASSERT_NE(linx_request_tmo(receiver, 1000, nullptr), 0u);
    takeFirstOfBatch();
    interposed::secondsAhead = 2;
    expectBehindBatch(LINX_OS_TIMEOUT_SIG);
}

}  // namespace
}  // namespace linx
