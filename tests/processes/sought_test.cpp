// Links and hunters as processes that die.

#include "tests/kit/child.h"
#include "tests/kit/domain_test.h"
#include "tests/kit/signals.h"

namespace {

using Sought = ProcessTest;

std::string textOf(const Received& received) {
    return std::string(received.payload.begin(), received.payload.end() - 1);
}

/// A link that tells how often it was told of something, and stays until it is killed.
void linkThatStays(Line& parent) {
    Endpoint link("toVp0", LINX_OPEN_LINK);
    parent.tell();
    for (;;) {
        EXPECT_EQ(textOf(expectSignal(link, LINX_OS_SOUGHT_SIG)), "X");
        parent.tell();
    }
}

TEST_F(Sought, ASleepingLinkIsWokenByAHunt) {
    Child link(linkThatStays);
    link.hear();
    link.awaitSleep();
    Endpoint hunter("hunter");
    ASSERT_EQ(linx_hunt(hunter, "toVp0/X", nullptr), 0);
    link.hear();
    link.kill9();
}

TEST_F(Sought, AHuntOutlivesTheLinkAndIsToldToTheNext) {
    Endpoint hunter("hunter");
    for (int i = 0; i < 3; ++i) {
        Child link(linkThatStays);
        link.hear();
        if (i == 0) {
            ASSERT_EQ(linx_hunt(hunter, "toVp0/X", nullptr), 0);
        }
        link.hear();
        link.kill9();
    }
    Endpoint last("toVp0", LINX_OPEN_LINK);
    EXPECT_TRUE(last.readable()) << "who waits in a poll loop is told too";
    EXPECT_EQ(textOf(expectSignal(last, LINX_OS_SOUGHT_SIG)), "X");
    expectNothing(last);
    Endpoint proxy("toVp0/X");
    EXPECT_EQ(spidOf(proxy), expectSignal(hunter, LINX_OS_HUNT_SIG).sender);
}

TEST_F(Sought, AHuntBehindADeadLinkSucceedsAndStaysPending) {
    Child link(linkThatStays);
    link.hear();
    link.kill9();
    Endpoint hunter("hunter");
    ASSERT_EQ(linx_hunt(hunter, "toVp0/X", nullptr), 0);
    Endpoint next("toVp0", LINX_OPEN_LINK);
    EXPECT_EQ(textOf(expectSignal(next, LINX_OS_SOUGHT_SIG)), "X");
    expectNothing(next);
}

TEST_F(Sought, WhatADeadHunterSoughtIsNotToldToALaterLink) {
    Child hunter([](Line& parent) {
        Endpoint endpoint("hunter");
        EXPECT_EQ(linx_hunt(endpoint, "toVp0/X", nullptr), 0);
        parent.tell();
        parent.hear();
    });
    hunter.hear();
    hunter.kill9();
    Endpoint("hunter").close();  // meets the dead one, and reaps it
    Endpoint link("toVp0", LINX_OPEN_LINK);
    expectNothing(link);
}

}  // namespace
