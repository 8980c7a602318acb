// What a receive leaves behind that has no memory for the signals that it finds.

#include <cerrno>
#include <cstdlib>
#include <new>

#include "host/mailbox/announced_stack.h"
#include "tests/host/endpoints.h"

namespace {

bool nextOneFails = false;

}  // namespace

void* operator new(std::size_t size) {
    void* memory = nextOneFails ? nullptr : std::malloc(size != 0 ? size : 1);
    nextOneFails = false;
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}
// With it, since what a sanitizer would allocate here could not be freed below.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return std::malloc(size != 0 ? size : 1);
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

namespace linx {
namespace {

using linxtest::anySignal;
using linxtest::Linx;

using ExhaustionTest = linxtest::ArenaDomainTest;

TEST_F(ExhaustionTest, WhatWasSentToAnEarlierUserOfTheSlotIsStillThrownAway) {
    Linx receiver("receiver");
    Linx sender("sender");
    sendNumber(sender, receiver.spid, 1);
    // As one who was held up since before the slot changed hands.
    const Spid earlier = makeSpid(indexOf(receiver.spid), generationOf(receiver.spid) - 1);
    LinxSignal* signal = linx_alloc(sender, 4, 2);
    Block& stray = *blockOf(signal);
    stray.owner.storeRelease(earlier | ownerTransit);
    stack::push(slotOf(receiver.spid).mailbox, stray, refOf(signal));

    nextOneFails = true;
    ASSERT_EQ(linx_receive_w_tmo(receiver, &signal, 0, anySignal), -1);
    EXPECT_EQ(errno, ENOMEM);
    ASSERT_FALSE(nextOneFails);
    EXPECT_EQ(receiveNumber(receiver), 1u);
    EXPECT_EQ(receiveNumber(receiver), 0u);
    EXPECT_EQ(dropped(receiver.spid), 1u);
}

}  // namespace
}  // namespace linx
