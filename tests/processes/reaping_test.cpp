// What the killed leave behind is put back by those who notice: all of the memory, every name.

#include <cerrno>
#include <random>

#include "tests/kit/role.h"
#include "tests/kit/signals.h"
#include "tests/kit/whole_arena_test.h"

namespace {

using linxtest::ScopedVariable;

constexpr uint32_t notice = 100;
constexpr uint32_t answer = 101;
constexpr uint32_t item = 1000;  // and on: signals are numbered

/// A small arena, so that what is not given back is soon missed.
class Reaping : public WholeArenaTest {
protected:
    void SetUp() override;
    void TearDown() override {
        reaper_.reset();
        WholeArenaTest::TearDown();
    }

    /// Kills a child that plays `role` when it has said `steps` words, and has the reaper notice and count what came.
    /// Returns the count.
    uint32_t killAfter(const Role& role, uint32_t steps) {
        Child killed(role);
        reaper_->tell(killed.hear());
        reaper_->hear();
        killed.tell();
        for (uint32_t i = 0; i < steps; ++i) killed.hear();
        killed.kill9();
        return reaper_->hear();
    }

    void endReaper() {
        reaper_->tell(0);
        EXPECT_EQ(reaper_->exitStatus(), 0);
        expectWholePool();
    }

private:
    const ScopedVariable size_{"LINX_ARENA_MB", "16"};
    std::unique_ptr<Child> reaper_;
};

/// Supervises one after the other whom it is told of, until it is told of nobody. Checks and answers every signal;
/// says when a supervision begins, and after its end how many signals came.
const Role reaper("Reaping.reaper", [](Line& parent) {
    Endpoint endpoint("reaper");
    while (const LinxSpid spid = parent.hear()) {
        ASSERT_NE(attach(endpoint, spid, notice), 0u);
        for (uint32_t i = 0; i < 100; ++i) ASSERT_EQ(sendBytes(endpoint, spid, answer, Bytes(1000)), 0);
        parent.tell();
        uint32_t count = 0;
        for (;;) {
            const std::optional<Received> received = receive(endpoint, patience);
            ASSERT_TRUE(received);
            ASSERT_EQ(received->sender, spid);
            if (received->number == notice) break;
            ASSERT_EQ(received->number, item + count);
            ASSERT_TRUE(pattern(received->payload.size(), received->number) == received->payload);
            ++count;
            send(endpoint, spid, answer);  // to somebody who may be dead by now
        }
        EXPECT_EQ(nameOf(endpoint, spid), "killed");
        parent.tell(count);
    }
});

void Reaping::SetUp() {
    WholeArenaTest::SetUp();
    reaper_ = std::make_unique<Child>(reaper.in(Size::own));
}

/// Opens "killed" for a child that is going to be, and waits until it is supervised.
class Killed : public Endpoint {
public:
    explicit Killed(Line& parent) : Endpoint("killed"), peer(hunt(*this, "reaper")) {
        parent.tell(spidOf(*this));
        parent.hear();
    }

    /// The next of the numbered signals that the reaper expects.
    int sendNext(size_t size) {
        const uint32_t number = item + sent_++;
        return sendBytes(*this, peer, number, pattern(size, number));
    }

    const LinxSpid peer;

private:
    uint32_t sent_ = 0;
};

const Role idle("Reaping.idle", [](Line& parent) {
    Killed endpoint(parent);
    parent.tell();
    parent.hear();
});

TEST_F(Reaping, WhoWasIdleLeavesNothing) {
    for (int round = 0; round < 5; ++round) EXPECT_EQ(killAfter(idle, 1), 0u);
    endReaper();
}

/// Sends without receiving, so that signals of both are on their way when it is killed.
const Role silent("Reaping.silent", [](Line& parent) {
    Killed endpoint(parent);
    for (int i = 0; i < 50; ++i) ASSERT_EQ(endpoint.sendNext(20000), 0);
    parent.tell();
    parent.hear();
});

TEST_F(Reaping, WhatWasInFlightArrivesOrComesBack) {
    for (int round = 0; round < 10; ++round) ASSERT_EQ(killAfter(silent, 1), 50u) << "round " << round;
    endReaper();
}

/// Owns memory in every way there is: allocated, received, queued, in its own mailbox, and parked for later.
const Role hoarder("Reaping.hoarder", [](Line& parent) {
    Killed endpoint(parent);
    for (uint32_t i = 0; i < 40; ++i) {
        ASSERT_NE(linx_alloc(endpoint, 30000, item), nullptr);
        LinxSignal* received = nullptr;
        ASSERT_LT(0, linx_receive_w_tmo(endpoint, &received, patience, anySignal));
        ASSERT_EQ(sendBytes(endpoint, spidOf(endpoint), item, Bytes(30000)), 0);
        LinxSignal* parked[3];
        for (LinxSignal*& signal : parked) signal = linx_alloc(endpoint, 5000, item);
        ASSERT_EQ(linx_hunt(endpoint, "absent", &parked[0]), 0);
        ASSERT_NE(linx_attach(endpoint, &parked[1], endpoint.peer), 0u);
        ASSERT_NE(linx_request_tmo(endpoint, 1000 * patience, &parked[2]), 0u);
    }
    parent.tell();
    parent.hear();
});

TEST_F(Reaping, WhatWasHeldComesBack) {
    for (int round = 0; round < 10; ++round) ASSERT_EQ(killAfter(hoarder, 1), 0u) << "round " << round;
    endReaper();
}

/// Sends without end and receives now and then, a word to the parent after each step.
const Role stormer("Reaping.stormer", [](Line& parent) {
    Killed endpoint(parent);
    for (uint32_t i = 0;; ++i) {
        const int result = endpoint.sendNext(i % 64 == 0 ? 40000 : i * 37 % 3000);
        ASSERT_TRUE(result == 0 || result == ENOMEM) << result;
        ASSERT_EQ(result, 0);
        parent.tell();
        if (i % 3 == 0) receive(endpoint, patience, {answer});
    }
});

TEST_F(Reaping, AKillInAStormOfSendsLosesNothing) {
    std::mt19937 random(3);
    for (int round = 0; round < 40; ++round) {
        const uint32_t steps = 1 + static_cast<uint32_t>(random() % 300);
        const uint32_t arrived = killAfter(stormer, steps);
        ASSERT_LE(steps, arrived) << "round " << round;
    }
    endReaper();
}

constexpr uint32_t crowd = 6;

std::string nameOfMember(uint32_t number) {
    return "member" + std::to_string(number % crowd);
}

/// Opens, hunts and closes again and again, a word to the parent after each time, until it hears one.
const Role restless("Crowd.restless", [](Line& parent) {
    const uint32_t number = parent.hear();
    for (;;) {
        for (int i = 0; i < 20; ++i) {
            Endpoint endpoint(nameOfMember(number));
            ASSERT_EQ(hunt(endpoint, nameOfMember(number)), spidOf(endpoint));
            ASSERT_NE(hunt(endpoint, "anchor"), 0u);
            ASSERT_EQ(linx_hunt(endpoint, nameOfMember(number + 1).c_str(), nullptr), 0);
            ASSERT_EQ(linx_hunt(endpoint, "nobody", nullptr), 0);
        }
        parent.tell();
        if (parent.hear() == 0) return;
    }
});

/// The same without a pause.
const Role breathless("Crowd.breathless", [](Line& parent) {
    const uint32_t number = parent.hear();
    for (;;) {
        Endpoint endpoint(nameOfMember(number));
        hunt(endpoint, "anchor");
        linx_hunt(endpoint, nameOfMember(number + 1).c_str(), nullptr);
        linx_hunt(endpoint, "nobody", nullptr);
        parent.tell();
    }
});

class Crowd : public WholeArenaTest {};

TEST_F(Crowd, GoesOnThoughItsMembersAreKilledWhileTheyOpenAndClose) {
    Endpoint anchor("anchor");
    std::vector<std::unique_ptr<Child>> members;
    for (uint32_t i = 0; i + 1 < crowd; ++i) {
        members.push_back(std::make_unique<Child>(restless.in(i % 2 == 0 ? Size::other : Size::own)));
        members.back()->tell(i);
    }
    std::mt19937 random(4);
    for (int round = 0; round < 30; ++round) {
        Child killed(breathless.in(round % 2 == 0 ? Size::other : Size::own));
        killed.tell(crowd - 1);
        const uint32_t steps = static_cast<uint32_t>(random() % 40);
        for (uint32_t i = 0; i < steps; ++i) killed.hear();
        killed.kill9();
        for (const auto& member : members) member->hear();
        for (const auto& member : members) member->tell(1);
    }
    for (const auto& member : members) member->hear();
    for (const auto& member : members) member->tell(0);
    for (const auto& member : members) EXPECT_EQ(member->exitStatus(), 0);
    Endpoint last(nameOfMember(crowd - 1));
    EXPECT_EQ(hunt(anchor, nameOfMember(crowd - 1)), spidOf(last));
    last.close();
    anchor.close();
    expectWholePool();
}

}  // namespace
