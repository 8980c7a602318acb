#include "host/pool/pool.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <random>

#include "host/pool/lease.h"
#include "tests/host/pool_fixture.h"
#include "tests/kit/witness.h"

namespace linx {
namespace {

using linxtest::KnownEndpoint;

TEST_F(PoolTest, TheBlockFreedLastIsTheOneUsedNext) {
    LinxSignal* first = linx_alloc(one, 100, 1);
    LinxSignal* second = linx_alloc(one, 100, 1);
    LinxSignal* const keptFirst = first;
    LinxSignal* const keptSecond = second;
    linx_free_buf(one, &first);
    linx_free_buf(one, &second);
    first = linx_alloc(one, 100, 1);
    second = linx_alloc(one, 100, 1);
    EXPECT_EQ(first, keptSecond);
    EXPECT_EQ(second, keptFirst);
    linx_free_buf(one, &first);
    linx_free_buf(one, &second);
}

TEST_F(PoolTest, EveryPayloadIsAlignedAndNoTwoSignalsOverlap) {
    std::vector<std::pair<char*, uint32_t>> areas;
    std::vector<LinxSignal*> signals;
    for (uint32_t size = 4; size < 200000; size += size / 3 + 1) {
        LinxSignal* signal = linx_alloc(one, size, size);
        ASSERT_NE(signal, nullptr);
        EXPECT_EQ((reinterpret_cast<uintptr_t>(signal) + sizeof(LinxSignal)) % 16, 0u) << size;
        std::memset(reinterpret_cast<char*>(signal) + 4, 0x5a, size - 4);
        areas.push_back({reinterpret_cast<char*>(blockOf(signal)), size + static_cast<uint32_t>(sizeof(Block)) - 4});
        signals.push_back(signal);
    }
    std::sort(areas.begin(), areas.end());
    for (size_t i = 1; i < areas.size(); ++i) EXPECT_LE(areas[i - 1].first + areas[i - 1].second, areas[i].first);
    freeAll(one, signals);
}

TEST_F(PoolTest, ABlockThatSomebodyElseFreesGoesBackHome) {
    const uint32_t linesOfOne = leasedLines(one.spid);
    const uint32_t linesOfTwo = leasedLines(two.spid);
    LinxSignal* signal = pass(one, two, two.spid, 4);
    LinxSignal* const kept = signal;
    EXPECT_EQ(homeOf(signal), one.spid);
    ASSERT_EQ(linx_free_buf(two, &signal), 0);
    EXPECT_EQ(slotOf(one.spid).returned.loadRelaxed(), stack::headOf(refOf(kept)));
    EXPECT_EQ(blockOf(kept)->owner.loadRelaxed(), inFlightTo(one.spid));
    EXPECT_EQ(leasedLines(one.spid), linesOfOne);
    EXPECT_EQ(leasedLines(two.spid), linesOfTwo);
}

TEST_F(PoolTest, ReturnedBlocksAreUsedBeforeMoreIsLeased) {
    for (int i = 0; i < 5000; ++i) {
        LinxSignal* signal = pass(one, two, two.spid, 1000);
        ASSERT_EQ(linx_free_buf(two, &signal), 0);
    }
    const SizeClass& c = sizeClasses[classForLines(linesForSignal(1000))];
    EXPECT_LE(leasedLines(one.spid), linesPerPage + c.blocks * c.lines);
}

TEST_F(PoolTest, ABlockWhoseHomeHasEndedStaysWithWhoFreesIt) {
    const uint32_t before = leasedLines(two.spid);
    LinxSignal* signal = pass(one, two, two.spid, 1000);
    LinxSignal* const kept = signal;
    const Spid ended = one.spid;
    one.close();
    EXPECT_EQ(homeOf(kept), ended);
    ASSERT_EQ(linx_free_buf(two, &signal), 0);
    EXPECT_EQ(homeOf(kept), two.spid);
    EXPECT_EQ(leasedLines(two.spid), before + linesOf(1000));
    signal = linx_alloc(two, 1000, 1);
    EXPECT_EQ(signal, kept);
    linx_free_buf(two, &signal);
}

TEST_F(PoolTest, BlocksThatAnEndingEndpointHeldComeOffTheBooksOfTheirHome) {
    const uint32_t before = leasedLines(one.spid);
    LinxSignal* held = pass(one, two, two.spid, 1000);
    ASSERT_NE(held, nullptr);
    sendNumber(one, two.spid, 2, 1000);
    LinxSignal* forHunt = pass(one, two, two.spid, 1000);
    ASSERT_EQ(linx_hunt(two, "absent", &forHunt), 0);
    two.close();
    // What two held, or hunted with, is in the central lists now; what it had not received has come back.
    EXPECT_EQ(homeOf(held), noHome);
    EXPECT_GE(leasedLines(one.spid), before);
    EXPECT_EQ(linxtest::brokenInvariant(*joined), "");
}

TEST_F(PoolTest, AnEndpointCannotHaveMoreThanItsShare) {
    std::vector<LinxSignal*> signals = allocateAll(one, mebibyte);
    EXPECT_EQ(signals.size(), share::limitOf(arena) / linesOf(mebibyte));
    EXPECT_LE(leasedLines(one.spid), share::limitOf(arena));
    EXPECT_TRUE(canAllocate(two, mebibyte));
    freeAll(one, signals);
    EXPECT_TRUE(canAllocate(one, mebibyte));
}

TEST_F(PoolTest, TheSurplusOfAnEndpointIsEverybodys) {
    std::vector<LinxSignal*> signals = allocateAll(one, 30000);
    EXPECT_GE(leasedLines(one.spid) + linesOf(30000), share::limitOf(arena));
    freeAll(one, signals);
    EXPECT_LT(leasedLines(one.spid), share::limitOf(arena) / 4);
}

TEST_F(PoolTest, TheMoreEndpointsThereAreTheLessEachMayKeep) {
    Word& open = arena.header().openEndpoints;
    const uint32_t before = open.loadRelaxed();
    const uint32_t lines = arena.pageCount() * linesPerPage;
    uint32_t ofFewer = lines;
    for (const uint32_t count : {1u, 10u, 100u, 1000u, slotCount - 1}) {
        open.storeRelaxed(count);
        EXPECT_LE(lease::keptBy(arena), ofFewer);
        EXPECT_LE(lease::keptBy(arena), lines / 8 / count);
        ofFewer = lease::keptBy(arena);
    }
    EXPECT_GT(ofFewer, 0u);
    for (const uint32_t garbage : {0u, ~0u}) {
        open.storeRelaxed(garbage);
        EXPECT_LE(lease::keptBy(arena), lines / 8);
    }
    open.storeRelaxed(before);
}

TEST_F(PoolTest, WhatOneEndpointHasFreedAnotherCanUse) {
    std::vector<LinxSignal*> signals = allocateAll(one, mebibyte);
    const uint32_t used = arena.header().pagesUsed.loadRelaxed();
    freeAll(one, signals);
    signals = allocateAll(two, mebibyte);
    EXPECT_EQ(signals.size(), share::limitOf(arena) / linesOf(mebibyte));
    const uint32_t keptByOne = leasedLines(one.spid) / linesPerPage;
    EXPECT_LE(arena.header().pagesUsed.loadRelaxed(), used + keptByOne + sizeClasses[sizeClassCount - 1].pages);
    freeAll(two, signals);
}

TEST_F(PoolTest, EndpointsThatComeAndGoUseTheSameMemory) {
    uint32_t used = 0;
    for (int round = 0; round < 50; ++round) {
        const KnownEndpoint brief("brief");
        std::vector<LinxSignal*> signals;
        for (int i = 0; i < 100; ++i) signals.push_back(linx_alloc(brief, 5000, 1));
        if (round == 1) used = arena.header().pagesUsed.loadRelaxed();
        if (round % 2 == 0) freeAll(brief, signals);
    }
    EXPECT_EQ(arena.header().pagesUsed.loadRelaxed(), used);
}

TEST_F(PoolTest, ABlockThatSomebodyScribbledOverIsNotGivenOutTwice) {
    LinxSignal* signal = linx_alloc(one, 4, 1);
    LinxSignal* const kept = signal;
    linx_free_buf(one, &signal);
    WordOf<OwnerWord>& owner = blockOf(kept)->owner;
    owner.storeRelaxed(heldBy(two.spid));
    signal = linx_alloc(one, 4, 1);
    EXPECT_NE(signal, kept);
    linx_free_buf(one, &signal);
    signal = kept;
    EXPECT_EQ(linx_free_buf(two, &signal), 0);
}

TEST_F(TightTest, AnExhaustedArenaIsAnErrorAndRecovers) {
    std::vector<LinxSignal*> ofOne = allocateAll(one, 4);
    std::vector<LinxSignal*> ofTwo = allocateAll(two, 4);
    {
        const KnownEndpoint third("third");
        EXPECT_FALSE(canAllocate(third, 65536));
        EXPECT_EQ(errno, ENOMEM);
    }
    freeAll(one, ofOne);
    freeAll(two, ofTwo);
    EXPECT_EQ(ownedBlocks(), 0u);
    EXPECT_TRUE(canAllocate(one, 65536));
    EXPECT_TRUE(canAllocate(two, 65536));
}

TEST_F(TightTest, ManySmallBlocksBecomeRoomForALargeOne) {
    std::vector<LinxSignal*> ofOne = allocateAll(one, 4);
    std::vector<LinxSignal*> ofTwo = allocateAll(two, 100);
    EXPECT_FALSE(canAllocate(one, mebibyte));
    freeAll(one, ofOne);
    freeAll(two, ofTwo);
    EXPECT_TRUE(canAllocate(one, mebibyte));
    EXPECT_TRUE(canAllocate(two, mebibyte));
}

TEST_F(TightTest, OnesOwnScatteredBlocksBecomeRoomForALargeOne) {
    std::vector<LinxSignal*> signals = allocateAll(one, 4);
    std::vector<LinxSignal*> others = allocateAll(two, mebibyte);
    std::shuffle(signals.begin(), signals.end(), std::mt19937(11));
    freeAll(one, signals);
    EXPECT_TRUE(canAllocate(one, mebibyte));
    freeAll(two, others);
}

TEST_F(TightTest, AnIdleEndpointIsGivenBackNoMoreThanItMayKeep) {
    std::vector<LinxSignal*> passed;
    while (LinxSignal* signal = linx_alloc(one, 1000, 1)) {
        ASSERT_EQ(linx_send(one, &signal, two.spid), 0);
        ASSERT_GT(linx_receive_w_tmo(two, &signal, 0, anySignal), 0);
        passed.push_back(signal);
    }
    freeAll(two, passed);
    // All of one's share came back from two, and one does nothing.
    EXPECT_TRUE(stack::holdsBlocks(slotOf(one.spid).returned.loadRelaxed()));
    EXPECT_LE(leasedLines(one.spid), lease::keptBy(arena) + linesForSignal(1000));
    const KnownEndpoint third("third");
    EXPECT_TRUE(canAllocate(third, mebibyte));
}

TEST_F(TightTest, AFullArenaIsNotLookedThroughForEveryRefusal) {
    const KnownEndpoint three("three");
    std::vector<LinxSignal*> ofOne = allocateAll(one, 60000);
    std::vector<LinxSignal*> ofTwo = allocateAll(two, 60000);
    std::vector<LinxSignal*> ofThree = allocateAll(three, 60000);
    char doorbell[16];
    std::snprintf(doorbell, sizeof doorbell, "bell.%08x", LinxSpid{one.spid});
    // Whoever looks for memory asks everybody whether he lives.
    const linxtest::Witness witness(domain.pathOf(doorbell), IN_OPEN | IN_CLOSE);
    constexpr int times = 2000;
    for (int i = 0; i < times; ++i) ASSERT_FALSE(canAllocate(three, 60000));
    EXPECT_LT(witness.count(), 2u * times / 2);
    // But what was given back is found.
    for (int i = 0; i < 10; ++i) {
        ASSERT_EQ(linx_send(two, &ofTwo.back(), three.spid), 0);
        ofTwo.pop_back();
        EXPECT_FALSE(canAllocate(three, 60000));
        LinxSignal* signal = nullptr;
        ASSERT_EQ(linx_receive_w_tmo(three, &signal, 0, anySignal), 60000);
        ASSERT_EQ(linx_free_buf(three, &signal), 0);
        // Two gets it back, and gives it up as soon as it is asked to.
        while (!canAllocate(three, 60000)) EXPECT_EQ(receiveNumber(two), 0u);
        LinxSignal* again = linx_alloc(three, 60000, 1);
        ofThree.push_back(again);
    }
    freeAll(one, ofOne);
    freeAll(two, ofTwo);
    freeAll(three, ofThree);
}

TEST_F(TightTest, RandomTrafficLeavesTheBooksInOrder) {
    LINX* const endpoints[] = {one, two};
    const LinxSpid spids[] = {one.spid, two.spid};
    std::vector<LinxSignal*> held[2];
    std::mt19937 random(5);
    const auto upTo = [&](size_t most) { return static_cast<size_t>(random() % (most + 1)); };
    for (int step = 0; step < 20000; ++step) {
        const size_t who = upTo(1);
        std::vector<LinxSignal*>& mine = held[who];
        if (upTo(2) == 0 || mine.empty()) {
            const auto size = static_cast<uint32_t>(4 + upTo(size_t{1} << upTo(17)));
            LinxSignal* signal = linx_alloc(endpoints[who], size, 1);
            if (signal != nullptr) mine.push_back(signal);
            continue;
        }
        std::swap(mine[upTo(mine.size() - 1)], mine.back());
        LinxSignal* signal = mine.back();
        mine.pop_back();
        if (upTo(1) == 0) {
            ASSERT_EQ(linx_free_buf(endpoints[who], &signal), 0);
        } else {
            ASSERT_EQ(linx_send(endpoints[who], &signal, spids[1 - who]), 0);
            ASSERT_GT(linx_receive_w_tmo(endpoints[1 - who], &signal, 0, anySignal), 0);
            held[1 - who].push_back(signal);
        }
        if (step % 1000 == 0) {
            ASSERT_EQ(linxtest::brokenInvariant(*joined), "");
        }
    }
    for (size_t who = 0; who < 2; ++who) freeAll(endpoints[who], held[who]);
    EXPECT_EQ(linxtest::brokenInvariant(*joined), "");
}

}  // namespace
}  // namespace linx
