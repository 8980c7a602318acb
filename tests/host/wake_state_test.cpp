#include "host/mailbox/wake_state.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <thread>
#include <vector>

#include "host/mailbox/doorbell.h"
#include "host/mailbox/take_all_stack.h"
#include "host/system/scoped_descriptor.h"
#include "tests/host/memory_arena.h"
#include "tests/kit/deliver.h"
#include "tests/kit/domain_test.h"
#include "tests/kit/readable.h"

namespace linx {
namespace {

using linxtest::MemoryArena;

const Spid receiver = makeSpid(SlotIndex{9}, 4);

class WakeStateTest : public ::testing::Test {
protected:
    int ring(WakeWord found, int answer = 0, SlotIndex ownIndex = SlotIndex{3}) {
        return wake_state::ring(word, found, receiver, ownIndex, [&] {
            ++rings;
            stateInBetween = wake_state::stateOf(word.loadRelaxed());
            return answer;
        });
    }
    int ringAsFound(uint32_t state) {
        word.storeRelaxed(wake_state::word(receiver, state));
        return ring(word.loadRelaxed());
    }
    uint32_t state() const { return wake_state::stateOf(word.loadRelaxed()); }

    WordOf<WakeWord> word{};
    int rings = 0;
    uint32_t stateInBetween = ~0u;
};

TEST_F(WakeStateTest, APushRingsWhereTheEndpointMayBeAsleepOrARingerMayHaveDied) {
    const auto asks = [](uint32_t state) {
        return wake_state::wantsRing(wake_state::word(receiver, state), receiver);
    };
    EXPECT_TRUE(asks(wake_state::parked));
    EXPECT_FALSE(asks(wake_state::awake));
    EXPECT_FALSE(asks(wake_state::notified));
    for (uint32_t index = 0; index < slotCount; ++index) ASSERT_TRUE(asks(wake_state::notifying + index));
}

TEST_F(WakeStateTest, AnotherGenerationIsNeverRung) {
    for (const uint32_t generation : {0u, 3u, 5u, generationMask}) {
        const Spid other = makeSpid(SlotIndex{9}, generation);
        for (const uint32_t state :
             {wake_state::parked, wake_state::awake, wake_state::notified, wake_state::notifying + 3}) {
            const WakeWord found = wake_state::word(other, state);
            EXPECT_FALSE(wake_state::wantsRing(found, receiver));
            word.storeRelaxed(found);
            EXPECT_EQ(ring(found), 0);
            EXPECT_EQ(word.loadRelaxed(), found) << "the word of another must stay as it is";
        }
    }
    EXPECT_EQ(rings, 0);
}

TEST_F(WakeStateTest, EveryStateAndGenerationComesBackAsItWentIn) {
    for (const uint32_t generation : {0u, 1u, generationMask}) {
        const Spid spid = makeSpid(SlotIndex{9}, generation);
        for (const uint32_t state :
             {wake_state::parked, wake_state::notified, wake_state::notifying + slotCount - 1}) {
            EXPECT_EQ(wake_state::stateOf(wake_state::word(spid, state)), state);
        }
    }
}

TEST_F(WakeStateTest, ParkedAndNotifyingWantARingInTheirOwnGenerationOnly) {
    const uint32_t last = wake_state::notifying + slotCount - 1;
    for (const uint32_t generation : {0u, 1u, 2u, generationMask}) {
        const Spid spid = makeSpid(SlotIndex{9}, generation);
        for (const uint32_t state : {wake_state::parked, wake_state::notifying, wake_state::notifying + 1, last}) {
            EXPECT_TRUE(wake_state::wantsRing(wake_state::word(spid, state), spid)) << generation << ' ' << state;
        }
        for (const uint32_t state : {wake_state::awake, wake_state::notified}) {
            EXPECT_FALSE(wake_state::wantsRing(wake_state::word(spid, state), spid)) << generation << ' ' << state;
        }
        for (const uint32_t other : {generation + 1, generation - 1}) {
            const Spid stranger = makeSpid(SlotIndex{9}, other & generationMask);
            for (const uint32_t state : {wake_state::parked, wake_state::awake, wake_state::notified, last}) {
                EXPECT_FALSE(wake_state::wantsRing(wake_state::word(stranger, state), spid)) << other << ' ' << state;
            }
        }
    }
}

TEST_F(WakeStateTest, NotifyingIsSaidBeforeTheByteAndNotifiedAfterIt) {
    EXPECT_EQ(ringAsFound(wake_state::parked), 0);
    EXPECT_EQ(rings, 1);
    EXPECT_EQ(stateInBetween, wake_state::notifying + 3);
    EXPECT_EQ(state(), wake_state::notified);
}

TEST_F(WakeStateTest, WhoLooksOrIsRungIsNotRung) {
    EXPECT_EQ(ringAsFound(wake_state::awake), 0);
    EXPECT_EQ(ringAsFound(wake_state::notified), 0);
    EXPECT_EQ(rings, 0);
}

TEST_F(WakeStateTest, WhereAnotherSenderIsNotifyingItRingsTooAndLeavesTheState) {
    EXPECT_EQ(ringAsFound(wake_state::notifying + 5), 0);
    EXPECT_EQ(rings, 1);
    EXPECT_EQ(state(), wake_state::notifying + 5);
}

TEST_F(WakeStateTest, WhoFindsTheStateChangedDecidesByWhatIsThereNow) {
    const WakeWord found = wake_state::word(receiver, wake_state::parked);
    word.storeRelaxed(wake_state::word(receiver, wake_state::notifying + 5));
    ring(found);
    EXPECT_EQ(rings, 1);
    EXPECT_EQ(state(), wake_state::notifying + 5);
    word.storeRelaxed(wake_state::word(receiver, wake_state::awake));
    ring(found);
    EXPECT_EQ(rings, 1);
    EXPECT_EQ(state(), wake_state::awake);
    const WakeWord next = wake_state::word(makeSpid(SlotIndex{9}, 5), wake_state::parked);
    word.storeRelaxed(next);
    ring(found);
    EXPECT_EQ(rings, 1);
    EXPECT_EQ(word.loadRelaxed(), next);
}

TEST_F(WakeStateTest, AnEndpointThatBeginsToLookMeanwhileKeepsItsState) {
    const WakeWord found = wake_state::word(receiver, wake_state::parked);
    word.storeRelaxed(found);
    wake_state::ring(word, found, receiver, SlotIndex{3}, [&] {
        word.storeRelaxed(wake_state::word(receiver, wake_state::awake));
        return 0;
    });
    EXPECT_EQ(state(), wake_state::awake);
}

TEST_F(WakeStateTest, WhatTheDoorbellSaysIsTheResult) {
    word.storeRelaxed(wake_state::word(receiver, wake_state::parked));
    EXPECT_EQ(ring(word.loadRelaxed(), EPIPE), EPIPE);
}

class WakeUpTest : public linxtest::DomainTest {};

/// A receiver that has nothing but the doorbell to wake it: one lost ring and it never ends.
TEST_F(WakeUpTest, NoWakeUpIsLostBetweenTwoSendersAndASleeper) {
    constexpr uint32_t each = 20000;
    const MemoryArena memory;
    const Arena arena = memory.arena();
    for (uint32_t page = 0; page < MemoryArena::pages; ++page) memory.layRun(page, 0);
    Slot& slot = arena.slot(indexOf(receiver));
    slot.wakeState.storeRelaxed(wake_state::word(receiver, wake_state::parked));
    const ScopedDescriptor directory(open(domain.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const ScopedDescriptor ownDoorbell(doorbell::make(directory.get(), receiver, 0600));

    std::vector<std::thread> senders;
    for (uint32_t sender = 0; sender < 2; ++sender) {
        senders.emplace_back([&, sender] {
            const ScopedDescriptor peer(doorbell::open(directory.get(), receiver));
            for (uint32_t i = 0; i < each; ++i) {
                const Ref ref = arena.refOfPage(PageIndex{0}) + sender * each + i;
                arena.blockAt(ref)->signal.number = i;
                linxtest::deliver(slot, arena.blockAt(ref));
                wake_state::ringIfAsked(slot, receiver, SlotIndex{sender + 1},
                                        [&] { return doorbell::ring(peer.get()); });
            }
        });
    }
    for (uint32_t left = 2 * each; left != 0;) {
        uint32_t records[doorbell::capacity];
        doorbell::drain(ownDoorbell.get(), records);
        slot.wakeState.storeSeqCst(wake_state::word(receiver, wake_state::parked));
        if (!stack::holdsBlocks(slot.mailbox.loadSeqCst())) {
            ASSERT_TRUE(isReadable(ownDoorbell.get(), -1));
        }
        slot.wakeState.exchangeSeqCst(wake_state::word(receiver, wake_state::awake));
        stack::walk(arena, stack::claimAll(slot.mailbox, slot.mailboxClaim, stack::empty), [&](BlockRef) { --left; });
    }
    for (std::thread& sender : senders) sender.join();
    doorbell::remove(directory.get(), receiver);
}

}  // namespace
}  // namespace linx
