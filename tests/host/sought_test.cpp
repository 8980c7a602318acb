// Links: what they are told of hunts, and what they can ask about the signals that they have sent.

#include <cerrno>
#include <cstring>

#include "platform/linx_link.h"
#include "tests/host/endpoints.h"

namespace {

using linxtest::AnySpid;
using linxtest::ArenaDomainTest;
using linxtest::KnownEndpoint;

Endpoint openLink(const char* name) {
    return Endpoint(name, LINX_OPEN_LINK);
}

class SoughtTest : public ArenaDomainTest {
protected:
    /// What the link is told next, and by whom; empty when there is nothing.
    static std::string nextSought(LINX* link, LinxSpid hunter) {
        LinxSignal* signal = nullptr;
        const int size = linx_receive_w_tmo(link, &signal, 0, anySignal);
        if (size <= 0) return "";
        EXPECT_EQ(signal->number, uint32_t{LINX_OS_SOUGHT_SIG});
        EXPECT_EQ(linx_sender(link, &signal), hunter);
        const std::string text(reinterpret_cast<const char*>(signal + 1), static_cast<size_t>(size) - 4);
        linx_free_buf(link, &signal);
        EXPECT_EQ(text.find('\0'), text.size() - 1) << "it ends with a NUL and has no other";
        return text.substr(0, text.size() - 1);
    }
};

TEST_F(SoughtTest, ALinkIsToldOfEachHuntForANameBehindItThatNobodyHas) {
    const Endpoint link = openLink("toVp0");
    const KnownEndpoint hunter("hunter");
    ASSERT_EQ(linx_hunt(hunter, "toVp0/EncodeCtrl", nullptr), 0);
    ASSERT_EQ(linx_hunt(hunter, "toVp0/b/c", nullptr), 0);
    ASSERT_EQ(linx_hunt(hunter, "toVp0/EncodeCtrl", nullptr), 0);
    EXPECT_EQ(nextSought(link, hunter.spid), "EncodeCtrl");
    EXPECT_EQ(nextSought(link, hunter.spid), "b/c");
    EXPECT_EQ(nextSought(link, hunter.spid), "EncodeCtrl");
    EXPECT_EQ(nextSought(link, hunter.spid), "");
}

TEST_F(SoughtTest, TheHuntStaysPendingAndIsAnsweredByWhoeverOpensUnderTheWholeName) {
    const Endpoint link = openLink("toVp0");
    const KnownEndpoint hunter("hunter");
    ASSERT_EQ(linx_hunt(hunter, "toVp0/X", nullptr), 0);
    EXPECT_EQ(receiveNumber(hunter), 0u);
    const KnownEndpoint proxy("toVp0/X");
    LinxSignal* signal = nullptr;
    ASSERT_EQ(linx_receive_w_tmo(hunter, &signal, 0, anySignal), 4);
    EXPECT_EQ(signal->number, uint32_t{LINX_OS_HUNT_SIG});
    EXPECT_EQ(linx_sender(hunter, &signal), proxy.spid);
    linx_free_buf(hunter, &signal);
    ASSERT_EQ(linx_hunt(hunter, "toVp0/X", nullptr), 0);
    EXPECT_EQ(receiveNumber(hunter), uint32_t{LINX_OS_HUNT_SIG});
    EXPECT_EQ(nextSought(link, hunter.spid), "X");
    EXPECT_EQ(nextSought(link, hunter.spid), "") << "what is there is not told";
}

TEST_F(SoughtTest, ALinkThatOpensLateIsToldOfWhatIsPending) {
    const KnownEndpoint one("one");
    const KnownEndpoint two("two");
    for (const char* name : {"toVp0/X", "toVp01/X", "toVp/X", "toVp0", "toVp0/", "/toVp0/X", "elsewhere"}) {
        ASSERT_EQ(linx_hunt(one, name, nullptr), 0);
    }
    ASSERT_EQ(linx_hunt(two, "toVp0/Y", nullptr), 0);
    const Endpoint link = openLink("toVp0");
    EXPECT_EQ(receiveNumber(one), uint32_t{LINX_OS_HUNT_SIG});  // for the link itself
    EXPECT_EQ(nextSought(link, one.spid), "X");
    EXPECT_EQ(nextSought(link, two.spid), "Y");
    EXPECT_EQ(nextSought(link, 0), "");
}

TEST_F(SoughtTest, NobodyElseIsTold) {
    const KnownEndpoint plain("toVp0");
    const Endpoint other = openLink("toVp1");
    const KnownEndpoint hunter("hunter");
    ASSERT_EQ(linx_hunt(hunter, "toVp0/X", nullptr), 0);
    ASSERT_EQ(linx_hunt(hunter, "toVp1", nullptr), 0);
    ASSERT_EQ(linx_hunt(hunter, "toVp1/", nullptr), 0);
    EXPECT_EQ(receiveNumber(plain), 0u);
    EXPECT_EQ(receiveNumber(other), 0u);
}

TEST_F(SoughtTest, ASlotThatWasALinkIsNoneForItsNextUser) {
    for (int i = 0; i < 3; ++i) openLink("toVp0");
    const KnownEndpoint plain("toVp0");
    const KnownEndpoint hunter("hunter");
    ASSERT_EQ(linx_hunt(hunter, "toVp0/X", nullptr), 0);
    EXPECT_EQ(receiveNumber(plain), 0u);
}

TEST_F(SoughtTest, ALinkIsToldOfWhatItHuntsForItself) {
    const Endpoint link = openLink("toVp0");
    LinxSignal* own = linx_alloc(link, 4, 1);
    const LinxSpid spid = linx_sender(link, &own);
    linx_free_buf(link, &own);
    ASSERT_EQ(linx_hunt(link, "toVp0/X", nullptr), 0);
    EXPECT_EQ(nextSought(link, spid), "X");
}

TEST_F(SoughtTest, NoOtherOptionIsKnown) {
    for (const uint32_t options : {2u, 3u, ~0u}) {
        errno = 0;
        EXPECT_EQ(linx_open("toVp0", options, nullptr), nullptr);
        EXPECT_EQ(errno, EINVAL);
    }
}

TEST_F(SoughtTest, AHuntThatALinkCannotBeToldOfFailsAndIsNotPending) {
    const linxtest::ScopedVariable size("LINX_ARENA_MB", "4");
    const Endpoint link = openLink("toVp0");
    const KnownEndpoint hunter("hunter");
    LinxSignal* wanted = linx_alloc(hunter, 4, 77);
    std::vector<LinxSignal*> all;
    for (uint32_t bytes : {60000u, 1000u, 4u}) {
        while (LinxSignal* signal = linx_alloc(hunter, bytes, 1)) all.push_back(signal);
    }
    errno = 0;
    EXPECT_EQ(linx_hunt(hunter, "toVp0/X", &wanted), -1);
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_EQ(wanted, nullptr);
    for (LinxSignal* signal : all) linx_free_buf(hunter, &signal);
    const KnownEndpoint sought("toVp0/X");
    EXPECT_EQ(receiveNumber(hunter), 0u);
    EXPECT_EQ(receiveNumber(link), 0u);
}

class AwayTest : public ArenaDomainTest {
protected:
    LinxSignal* sendOne(LinxSpid to) {
        LinxSignal* signal = linx_alloc(*from, 100, 1);
        LinxSignal* const place = signal;
        EXPECT_EQ(linx_send(*from, &signal, to), 0);
        return place;
    }
    int isAway(const LinxSignal* signal) const { return linx_is_away(*witness, signal, spid); }

    void TearDown() override {
        from.reset();
        witness.reset();
        ArenaDomainTest::TearDown();
    }

    std::unique_ptr<KnownEndpoint> witness = std::make_unique<KnownEndpoint>("witness");
    std::unique_ptr<KnownEndpoint> from = std::make_unique<KnownEndpoint>("from");
    const LinxSpid spid = from->spid;
};

TEST_F(AwayTest, ASignalIsAwayUntilWhoeverHasItFreesIt) {
    const KnownEndpoint to("to");
    const KnownEndpoint third("third");
    LinxSignal* const sent = sendOne(to.spid);
    EXPECT_EQ(isAway(sent), 1);
    LinxSignal* received = nullptr;
    ASSERT_EQ(linx_receive_w_tmo(to, &received, 0, anySignal), 100);
    ASSERT_EQ(received, sent);
    EXPECT_EQ(isAway(sent), 1);
    ASSERT_EQ(linx_send(to, &received, third.spid), 0);
    EXPECT_EQ(isAway(sent), 1) << "it was handed on";
    ASSERT_EQ(linx_receive_w_tmo(third, &received, 0, anySignal), 100);
    ASSERT_EQ(linx_free_buf(third, &received), 0);
    EXPECT_EQ(isAway(sent), 0);
}

TEST_F(AwayTest, WhatItsSenderHasIsNotAway) {
    LinxSignal* signal = linx_alloc(*from, 100, 1);
    EXPECT_EQ(isAway(signal), 0);
    ASSERT_EQ(linx_free_buf(*from, &signal), 0);
    EXPECT_EQ(isAway(sendOne(spid)), 0);
}

TEST_F(AwayTest, WhatASenderThatHasEndedLeftIsAwayUntilItIsFreed) {
    const KnownEndpoint to("to");
    LinxSignal* const sent = sendOne(to.spid);
    LinxSignal* const unread = sendOne(to.spid);
    from.reset();
    EXPECT_EQ(isAway(sent), 1);
    EXPECT_EQ(receiveNumber(to), 1u);
    EXPECT_EQ(isAway(sent), 0);
    EXPECT_EQ(isAway(unread), 1);
}

TEST_F(AwayTest, WhatGoesWithItsReceiverIsNotAway) {
    auto to = std::make_unique<KnownEndpoint>("to");
    LinxSignal* const sent = sendOne(to->spid);
    EXPECT_EQ(isAway(sent), 1);
    to.reset();
    EXPECT_EQ(isAway(sent), 0);
}

TEST_F(AwayTest, AnyAddressMayBeAskedFor) {
    uint64_t elsewhere[16] = {};
    EXPECT_EQ(isAway(reinterpret_cast<LinxSignal*>(elsewhere)), 0);
    EXPECT_EQ(isAway(reinterpret_cast<LinxSignal*>(uintptr_t{12345})), 0);
    errno = 0;
    EXPECT_EQ(isAway(nullptr), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(linx_is_away(nullptr, reinterpret_cast<LinxSignal*>(elsewhere), spid), -1);
}

}  // namespace
