// What a test learns of what happened.

#include <new>

#include "fixture.h"
#include "platform/LogClient.h"
#include "platform/Watchdog.h"

namespace {

class RecordTest : public PlatformTest {};

TEST_F(RecordTest, CallsAreTakenInTheirOrderAndOnce) {
    signal = linx_alloc(self, 8, 300);
    linx_send(self, &signal, 7);
    platform.note("of the test");
    EXPECT_EQ(receiveWithin(10), "nothing");
    EXPECT_THAT(platform.takeCalls(), ElementsAre("linx_alloc(8, 300) = s1", "linx_send(s1, 7)", "of the test",
                                                  "linx_receive_w_tmo(10, {0})"));
    EXPECT_THAT(platform.takeCalls(), IsEmpty());
}

TEST_F(RecordTest, AnotherHandleIsNamed) {
    LINX* const other = linx_open("Other", 0, nullptr);
    linx_close(other);
    linx_close(nullptr);
    linx_close(self);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre("linx_open(\"Other\", 0, null)", "[Other]linx_close", "[null]linx_close", "linx_close"));
}

TEST_F(RecordTest, SelectionsAreListed) {
    const std::uint32_t two[] = {2, 300, 301};
    const std::uint32_t padded[] = {0, 5, 6};
    receive(self, two);
    receive(self);
    platform.wordsBehindZero = 2;
    receive(self, padded);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre("linx_receive({2, 300, 301})", "linx_receive({0})", "linx_receive({0, 5, 6})"));
}

TEST_F(RecordTest, SignalsAreInHandUntilTheyAreGivenAway) {
    const std::string arrived = platform.arrive(7, 300, "abcd");
    EXPECT_THAT(platform.signalsInHand(), IsEmpty());
    linx_receive(self, &signal, any);
    EXPECT_EQ(platform.nameOf(signal), arrived);
    LinxSignal* made = platform.makeSignal(301, "xy");
    EXPECT_EQ(platform.describe(made), "301 'xy'");
    EXPECT_THAT(platform.signalsInHand(), ElementsAre("s1", "s2"));
    linx_free_buf(self, &signal);
    linx_send(self, &made, 7);
    EXPECT_THAT(platform.signalsInHand(), IsEmpty());
    EXPECT_EQ(platform.signalsFreed, 1u);
    EXPECT_EQ(platform.nameOf(nullptr), "null");
    LinxSignal foreign{300};
    EXPECT_EQ(platform.nameOf(&foreign), "foreign");
    EXPECT_EQ(platform.describe(&foreign), "no signal");
}

TEST_F(RecordTest, WhatWasSentIsKept) {
    LinxSignal* made = platform.makeSignal(300, "abcd");
    linx_send(self, &made, 7);
    ASSERT_EQ(platform.sent.size(), 1u);
    EXPECT_EQ(platform.sent[0].to, 7u);
    EXPECT_EQ(platform.sent[0].number, 300u);
    EXPECT_EQ(platform.sent[0].payload, "abcd");
    EXPECT_EQ(platform.sent[0].bytes.size(), 8u);
    EXPECT_EQ(platform.sent[0].error, 0);
}

TEST_F(RecordTest, NamesAreInHandUntilTheyAreGivenBack) {
    platform.setName(7, "Peer");
    char* name = nullptr;
    linx_get_name(self, 7, &name);
    EXPECT_EQ(platform.namesInHand(), 1u);
    linx_free_name(self, &name);
    EXPECT_EQ(platform.namesInHand(), 0u);
    EXPECT_EQ(name, nullptr);
}

TEST_F(RecordTest, LinesOfTheLogAreKept) {
    platform.level = 2;
    platform.processName = "Tested";
    EXPECT_EQ(LogClient::Instance()->Level(), 2u);
    EXPECT_EQ(LogClient::Instance()->ProcessName(), "Tested");
    { SysLogMsg().Log(2, "Tested") << "text " << 5; }
    ASSERT_EQ(platform.logs.size(), 1u);
    EXPECT_EQ(platform.logs[0].level, 2u);
    EXPECT_EQ(platform.logs[0].process, "Tested");
    EXPECT_EQ(platform.logs[0].text, "text 5");
    EXPECT_FALSE(platform.logs[0].streamFailed);
    EXPECT_THAT(platform.takeCalls(), ElementsAre("log 2 text 5"));
}

TEST_F(RecordTest, TheWatchdogAnswersAsTold) {
    Watchdog watchdog;
    EXPECT_EQ(watchdog.PetWatchdog(), 0);
    platform.watchdogResult = 42;
    EXPECT_EQ(watchdog.PetWatchdog(), 42);
    EXPECT_THAT(platform.takeCalls(), ElementsAre("PetWatchdog", "PetWatchdog"));
}

TEST_F(RecordTest, NumbersAreLeftOutWhereATestWantsIt) {
    platform.allocWritesNumber = false;
    signal = linx_alloc(self, 4, 300);
    EXPECT_NE(signal->number, 300u);
    linx_free_buf(self, &signal);
}

}  // namespace
