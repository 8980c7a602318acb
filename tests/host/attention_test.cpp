#include "host/mailbox/attention.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>

#include <cerrno>
#include <thread>
#include <vector>

#include "host/arena/scoped_descriptor.h"
#include "host/mailbox/announced_stack.h"
#include "host/mailbox/bell.h"
#include "tests/host/memory_arena.h"
#include "tests/support/deliver.h"
#include "tests/support/domain_fixture.h"

namespace linx {
namespace {

using linxtest::MemoryArena;

const Spid receiver = makeSpid(9, 4);

class AttentionTest : public ::testing::Test {
protected:
    int ring(uint32_t found, int answer = 0, uint32_t ownIndex = 3) {
        return attention::ring(word, found, receiver, ownIndex, [&] {
            ++rings;
            stateInBetween = attention::stateOf(word.loadRelaxed());
            return answer;
        });
    }
    int ringAsFound(uint32_t state) {
        word.storeRelaxed(attention::word(receiver, state));
        return ring(word.loadRelaxed());
    }
    uint32_t state() const { return attention::stateOf(word.loadRelaxed()); }

    Word word{};
    int rings = 0;
    uint32_t stateInBetween = ~0u;
};

TEST_F(AttentionTest, APushRingsWhereTheEndpointMayBeAsleepOrARingerMayHaveDied) {
    const auto asks = [](uint32_t state) {
        return attention::asksForRing(attention::word(receiver, state), receiver);
    };
    EXPECT_TRUE(asks(attention::quiet));
    EXPECT_FALSE(asks(attention::looking));
    EXPECT_FALSE(asks(attention::rung));
    for (uint32_t index = 0; index < slotCount; ++index) ASSERT_TRUE(asks(attention::ringing + index));
}

TEST_F(AttentionTest, AnotherGenerationIsNeverRung) {
    for (const uint32_t generation : {0u, 3u, 5u, generationMask}) {
        const Spid other = makeSpid(9, generation);
        for (const uint32_t state : {attention::quiet, attention::looking, attention::rung, attention::ringing + 3}) {
            const uint32_t found = attention::word(other, state);
            EXPECT_FALSE(attention::asksForRing(found, receiver));
            word.storeRelaxed(found);
            EXPECT_EQ(ring(found), 0);
            EXPECT_EQ(word.loadRelaxed(), found) << "the word of another must stay as it is";
        }
    }
    EXPECT_EQ(rings, 0);
}

TEST_F(AttentionTest, EveryStateAndGenerationComesBackAsItWentIn) {
    for (const uint32_t generation : {0u, 1u, generationMask}) {
        const Spid spid = makeSpid(9, generation);
        for (const uint32_t state : {attention::quiet, attention::rung, attention::ringing + slotCount - 1}) {
            EXPECT_EQ(attention::stateOf(attention::word(spid, state)), state);
        }
    }
}

TEST_F(AttentionTest, QuietAndRingingAskForARingInTheirOwnGenerationOnly) {
    const uint32_t last = attention::ringing + slotCount - 1;
    for (const uint32_t generation : {0u, 1u, 2u, generationMask}) {
        const Spid spid = makeSpid(9, generation);
        for (const uint32_t state : {attention::quiet, attention::ringing, attention::ringing + 1, last}) {
            EXPECT_TRUE(attention::asksForRing(attention::word(spid, state), spid)) << generation << ' ' << state;
        }
        for (const uint32_t state : {attention::looking, attention::rung}) {
            EXPECT_FALSE(attention::asksForRing(attention::word(spid, state), spid)) << generation << ' ' << state;
        }
        for (const uint32_t other : {generation + 1, generation - 1}) {
            const Spid stranger = makeSpid(9, other & generationMask);
            for (const uint32_t state : {attention::quiet, attention::looking, attention::rung, last}) {
                EXPECT_FALSE(attention::asksForRing(attention::word(stranger, state), spid)) << other << ' ' << state;
            }
        }
    }
}

TEST_F(AttentionTest, RingingIsAnnouncedBeforeTheByteAndToldAfterIt) {
    EXPECT_EQ(ringAsFound(attention::quiet), 0);
    EXPECT_EQ(rings, 1);
    EXPECT_EQ(stateInBetween, attention::ringing + 3);
    EXPECT_EQ(state(), attention::rung);
}

TEST_F(AttentionTest, WhoLooksOrIsRungIsNotRung) {
    EXPECT_EQ(ringAsFound(attention::looking), 0);
    EXPECT_EQ(ringAsFound(attention::rung), 0);
    EXPECT_EQ(rings, 0);
}

TEST_F(AttentionTest, AnotherSendersAnnouncementIsRungTooAndLeftInPlace) {
    EXPECT_EQ(ringAsFound(attention::ringing + 5), 0);
    EXPECT_EQ(rings, 1);
    EXPECT_EQ(state(), attention::ringing + 5);
}

TEST_F(AttentionTest, WhoLosesTheAnnouncementDecidesByWhatIsThereNow) {
    const uint32_t found = attention::word(receiver, attention::quiet);
    word.storeRelaxed(attention::word(receiver, attention::ringing + 5));
    ring(found);
    EXPECT_EQ(rings, 1);
    EXPECT_EQ(state(), attention::ringing + 5);
    word.storeRelaxed(attention::word(receiver, attention::looking));
    ring(found);
    EXPECT_EQ(rings, 1);
    EXPECT_EQ(state(), attention::looking);
    const uint32_t next = attention::word(makeSpid(9, 5), attention::quiet);
    word.storeRelaxed(next);
    ring(found);
    EXPECT_EQ(rings, 1);
    EXPECT_EQ(word.loadRelaxed(), next);
}

TEST_F(AttentionTest, AnEndpointThatBeginsToLookMeanwhileKeepsItsState) {
    const uint32_t found = attention::word(receiver, attention::quiet);
    word.storeRelaxed(found);
    attention::ring(word, found, receiver, 3, [&] {
        word.storeRelaxed(attention::word(receiver, attention::looking));
        return 0;
    });
    EXPECT_EQ(state(), attention::looking);
}

TEST_F(AttentionTest, WhatTheBellSaysIsTheResult) {
    word.storeRelaxed(attention::word(receiver, attention::quiet));
    EXPECT_EQ(ring(word.loadRelaxed(), EPIPE), EPIPE);
}

class WakeUpTest : public linxtest::DomainTest {};

/// A receiver that has nothing but the bell to wake it: one lost ring and it never ends.
TEST_F(WakeUpTest, NoWakeUpIsLostBetweenTwoSendersAndASleeper) {
    constexpr uint32_t each = 20000;
    const MemoryArena memory;
    const Arena arena = memory.arena();
    for (uint32_t unit = 0; unit < MemoryArena::units; ++unit) memory.layRun(unit, 0);
    Slot& slot = arena.slot(indexOf(receiver));
    slot.attention.storeRelaxed(attention::word(receiver, attention::quiet));
    const ScopedDescriptor directory(open(domain.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const ScopedDescriptor ownBell(bell::make(directory.get(), receiver, 0600));

    std::vector<std::thread> senders;
    for (uint32_t sender = 0; sender < 2; ++sender) {
        senders.emplace_back([&, sender] {
            const ScopedDescriptor peer(bell::open(directory.get(), receiver));
            for (uint32_t i = 0; i < each; ++i) {
                const Ref ref = arena.refOfUnit(0) + sender * each + i;
                arena.blockAt(ref)->signal.number = i;
                linxtest::deliver(slot, *arena.blockAt(ref), ref);
                const uint32_t found = slot.attention.loadSeqCst();
                if (!attention::asksForRing(found, receiver)) continue;
                attention::ring(slot.attention, found, receiver, sender + 1, [&] { return bell::ring(peer.get()); });
            }
        });
    }
    for (uint32_t left = 2 * each; left != 0;) {
        uint32_t records[bell::capacity];
        bell::drain(ownBell.get(), records);
        slot.attention.storeSeqCst(attention::word(receiver, attention::quiet));
        if (!stack::holdsBlocks(slot.mailbox.loadSeqCst())) {
            pollfd poll = {ownBell.get(), POLLIN, 0};
            ASSERT_EQ(::poll(&poll, 1, -1), 1);
        }
        slot.attention.exchangeSeqCst(attention::word(receiver, attention::looking));
        stack::walk(arena, stack::take(slot.mailbox, slot.takingMailbox, stack::empty),
                    [&](Block&, Ref, uint32_t) { --left; });
    }
    for (std::thread& sender : senders) sender.join();
    bell::remove(directory.get(), receiver);
}

}  // namespace
}  // namespace linx
