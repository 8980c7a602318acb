// What has been arranged to arrive, and who receives it.

#include <poll.h>
#include <unistd.h>

#include "fixture.h"

namespace {

class ArrivalsTest : public PlatformTest {
protected:
    static bool isReadable(int descriptor) {
        pollfd polled{descriptor, POLLIN, 0};
        return poll(&polled, 1, 0) == 1 && polled.revents == POLLIN;
    }
};

TEST_F(ArrivalsTest, WhatArrivesIsReceivedInItsOrder) {
    platform.arrive(7, 300, "abcd");
    platform.arrive(8, 301);
    EXPECT_EQ(receive(self), "300 'abcd' from 7");
    EXPECT_EQ(receiveWithin(10), "301 '' from 8");
}

TEST_F(ArrivalsTest, WhatIsNotSelectedStaysQueued) {
    const std::uint32_t selection[] = {2, 301, 302};
    platform.arrive(7, 300);
    platform.arrive(7, 302);
    EXPECT_EQ(receive(self, selection), "302 '' from 7");
    EXPECT_EQ(receiveWithin(0, selection), "nothing");
    EXPECT_EQ(receive(self), "300 '' from 7");
}

TEST_F(ArrivalsTest, AReceiveThatWouldWaitForEverFails) {
    EXPECT_EQ(receive(self), "error " + std::to_string(EDEADLK));
    EXPECT_EQ(signal, nullptr);
    EXPECT_EQ(platform.endlessWaits, 1u);
}

TEST_F(ArrivalsTest, AnyEndpointReceivesWhatArrivesAndTheHunterItsAnswer) {
    LINX* const other = linx_open("Other", 0, nullptr);
    const LinxSpid peer = platform.addPeer("Peer");
    linx_hunt(other, "Peer", nullptr);
    platform.arrive(7, 300);
    EXPECT_EQ(receive(self), "300 '' from 7");
    EXPECT_EQ(receiveWithin(0), "nothing");
    EXPECT_EQ(receive(other), "251 '' from " + std::to_string(peer));
}

TEST_F(ArrivalsTest, TimeOutsAndNoticesGoToWhoAskedForThem) {
    LINX* const other = linx_open("Other", 0, nullptr);
    const LinxSpid peer = platform.addPeer("Peer");
    signal = linx_alloc(other, 4, 400);
    linx_attach(other, &signal, peer);
    signal = linx_alloc(other, 4, 401);
    const LinxSpid own = linx_sender(other, &signal);
    linx_request_tmo(other, 10, &signal);
    linx_request_tmo(other, 20, nullptr);
    platform.endPeer("Peer");
    platform.advance(20ms);
    EXPECT_EQ(receiveWithin(0), "nothing");
    EXPECT_NE(own, 1u);
    EXPECT_EQ(receive(other), "400 '' from " + std::to_string(peer));
    EXPECT_EQ(receive(other), "401 '' from " + std::to_string(own));
    EXPECT_EQ(receive(other), "252 '' from " + std::to_string(own));
}

TEST_F(ArrivalsTest, TheDescriptorIsReadableWhileThereIsSomethingToReceive) {
    const int descriptor = linx_get_descriptor(self);
    EXPECT_EQ(linx_get_descriptor(self), descriptor);
    EXPECT_FALSE(isReadable(descriptor));
    platform.arrive(7, 300);
    platform.arrive(7, 301);
    EXPECT_TRUE(isReadable(descriptor));
    receive(self);
    EXPECT_TRUE(isReadable(descriptor));
    receive(self);
    EXPECT_FALSE(isReadable(descriptor));
    linx_request_tmo(self, 100, nullptr);
    EXPECT_FALSE(isReadable(descriptor));
    platform.advance(100ms);
    EXPECT_TRUE(isReadable(descriptor));
    platform.cancelArrangements();
    EXPECT_FALSE(isReadable(descriptor));
    close(descriptor);
}

TEST_F(ArrivalsTest, TheDescriptorIsReadableFromTheFirstOnWhenSomethingHasArrivedBefore) {
    platform.arrive(7, 300);
    const int descriptor = linx_get_descriptor(self);
    EXPECT_TRUE(isReadable(descriptor));
    close(descriptor);
}

TEST_F(ArrivalsTest, TheDescriptorBelongsToWhoeverAskedForIt) {
    const int descriptor = linx_get_descriptor(self);
    EXPECT_EQ(linx_close(self), 0);
    EXPECT_EQ(close(descriptor), 0);
}

TEST_F(ArrivalsTest, TheNumberOfADescriptorCanBeChosen) {
    platform.descriptor = 4711;
    EXPECT_EQ(linx_get_descriptor(self), 4711);
}

TEST_F(ArrivalsTest, PayloadsAreAlignedAsPlatformsAlignThem) {
    platform.arrive(7, 300, "abcd");
    ASSERT_GT(linx_receive(self, &signal, any), 0);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(signal + 1) % 16, 0u);
    linx_free_buf(self, &signal);
}

TEST_F(ArrivalsTest, CancelledArrangementsDoNotHappen) {
    platform.arrive(7, 300);
    platform.arriveAfter(10ms, 7, 301);
    linx_request_tmo(self, 10, nullptr);
    linx_hunt(self, "Late", nullptr);
    platform.fail("linx_receive_w_tmo", {EINVAL});
    platform.failAlways("linx_send", ECONNRESET);
    platform.cancelArrangements();
    platform.addPeer("Late");
    EXPECT_EQ(receiveWithin(100), "nothing");
    signal = linx_alloc(self, 4, 300);
    EXPECT_EQ(linx_send(self, &signal, 7), 0);
}

TEST_F(ArrivalsTest, AResetForgetsEverything) {
    platform.arrive(7, 300);
    platform.makeSignal(301);
    platform.addPeer("Peer");
    platform.setName(7, "Seven");
    platform.advance(10s);
    platform.level = 0;
    platform.failAlways("linx_open", ENOMEM);
    platform.reset();
    EXPECT_EQ(platform.now(), 0ms);
    EXPECT_EQ(platform.level, 0xFFFFFFFF);
    EXPECT_THAT(platform.takeCalls(), IsEmpty());
    EXPECT_THAT(platform.signalsInHand(), IsEmpty());
    EXPECT_EQ(platform.arrive(7, 300), "s1");
    LINX* const next = linx_open("Next", 0, nullptr);
    ASSERT_NE(next, nullptr);
    char* name = nullptr;
    EXPECT_EQ(linx_get_name(next, 7, &name), -1);
    EXPECT_EQ(receive(next), "300 '' from 7");
    linx_hunt(next, "Peer", nullptr);
    EXPECT_EQ(received(linx_receive_w_tmo(next, &signal, 0, any), next), "nothing");
}

TEST_F(ArrivalsTest, AnEndpointMayBeClosedAfterAReset) {
    platform.reset();
    EXPECT_EQ(linx_close(self), 0);
    EXPECT_THAT(platform.takeCalls(), ElementsAre("[Self]linx_close"));
}

}  // namespace
