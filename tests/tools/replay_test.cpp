// What was captured, sent again to endpoints that are there.

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "tests/tools/in_memory.h"
#include "tests/tools/scene.h"
#include "tools/captured.h"
#include "tools/pcapng.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;
using tools::Captured;

constexpr bool isLittleEndian = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__;

class ReplayTest : public ProcessTest {
protected:
    void TearDown() override {
        server.close();
        ProcessTest::TearDown();
    }

    static Captured to(const std::string& name, uint32_t number, const Bytes& payload = {}) {
        Captured signal;
        signal.fromName = "client";
        signal.toName = name;
        signal.number = number;
        signal.size = static_cast<uint32_t>(4 + payload.size());
        signal.isLittleEndian = isLittleEndian;
        signal.data = payload;
        return signal;
    }

    /// The signals, so many microseconds from one to the next.
    void write(const std::vector<Captured>& signals, uint64_t apart = 1) {
        std::ofstream(capture, std::ios::binary) << writtenBy([&](std::FILE* file) {
            tools::PcapngWriter writer(file, "domain", 96);
            uint64_t time = 1774518896000000000;
            for (Captured signal : signals) {
                signal.nanoseconds = time += apart * 1000;
                writer.write(toPacket(signal));
            }
            writer.finish({}, time);
        });
    }

    static std::string summary(int sent, int notSent) {
        return "sent " + std::to_string(sent) + " signals, not sent " + std::to_string(notSent) + "\n";
    }

    Outcome replay(std::vector<std::string> arguments = {}) const {
        arguments.insert(arguments.begin(), {"replay", capture});
        return runLinx(arguments);
    }

    const std::string capture = domain.pathOf("capture");
    Endpoint server{"server"};
};

TEST_F(ReplayTest, EachSignalIsSentToWhomItWasSent) {
    Endpoint other("other");
    const Bytes payload = pattern(300, 1);
    write({to("server", 1, payload), to("other", 2), to("server", 3, Bytes(1u << 16))});
    EXPECT_EQ((Outcome{0, summary(3, 0), ""}), replay());
    EXPECT_EQ(expectSignal(server, 1).payload, payload);
    EXPECT_EQ(expectSignal(server, 3).payload, Bytes(1u << 16));
    EXPECT_EQ(expectSignal(other, 2).payload, Bytes());
    expectNothing(server);
    expectNothing(other);
}

TEST_F(ReplayTest, AnotherMayGetItAll) {
    write({to("nobody", 1), to("server", 2)});
    EXPECT_EQ(replay({"--to", "server"}), (Outcome{0, summary(2, 0), ""}));
    expectSignal(server, 1);
    expectSignal(server, 2);
}

TEST_F(ReplayTest, NoMoreAreSentThanAreWanted) {
    write({to("server", 1), to("server", 2), to("server", 3)});
    EXPECT_EQ(replay({"-N", "2"}), (Outcome{0, summary(2, 0), ""}));
    expectSignal(server, 1);
    expectSignal(server, 2);
    expectNothing(server);
}

TEST_F(ReplayTest, WhoIsNotThereIsToldAndTheOthersGetTheirs) {
    write({to("nobody", 1), to("server", 2), to("nobody", 3), to("server", 4)});
    EXPECT_EQ(replay(), (Outcome{3, summary(2, 2), "linx: not sent: 2 to 'nobody', whom nobody is called\n"}));
    expectSignal(server, 2);
    expectSignal(server, 4);
    EXPECT_EQ(replay({"-j"}).out, "{\"sent\":2,\"not_sent\":2}\n");
}

TEST_F(ReplayTest, WhoComesLaterGetsItsOwn) {
    write({to("late", 1), to("server", 2), to("late", 3), to("server", 4)});
    LinxRun run({"replay", capture, "--timeout", "60"});
    while (runLinx({"status", "linx." + std::to_string(run.pid())}).out.find("hunts       late") ==
           std::string::npos) {
    }
    Endpoint late("late");
    EXPECT_EQ(run.finish(), (Outcome{0, summary(4, 0), ""}));
    expectSignal(late, 1);
    expectSignal(late, 3);
    expectNothing(late);
    expectSignal(server, 2);
    expectSignal(server, 4);
    expectNothing(server);
}

TEST_F(ReplayTest, TheAnswerOfOneWhomNobodyWaitsForAnyMoreIsNotTakenForThatOfAnother) {
    // A signal to whom nobody is called, then a pause in which it is opened.
    write({to("late", 1), to("server", 2), to("late", 3)}, 1500000);
    LinxRun run({"replay", capture});
    while (runLinx({"status", "linx." + std::to_string(run.pid())}).out.find("hunts       late") ==
           std::string::npos) {
    }
    Endpoint late("late");
    const Outcome outcome = run.finish();
    EXPECT_EQ(outcome.out, summary(2, 1));
    expectSignal(server, 2);
    expectNothing(server);
    expectSignal(late, 3);
    expectNothing(late);
}

TEST_F(ReplayTest, ASignalOfWhichOnlyTheBeginningWasCapturedIsNotSent) {
    Captured cut = to("server", 2, Bytes(10));
    cut.size = 504;
    write({to("server", 1), cut, to("server", 3)});
    EXPECT_EQ((Outcome{1, summary(2, 1),
                       "linx: not sent: signal 2 has 500 bytes of payload, of which 10 were captured: capture with "
                       "--snaplen\n"}),
              replay());
    expectSignal(server, 1);
    expectSignal(server, 3);
}

TEST_F(ReplayTest, APayloadOfAMachineOfAnotherByteOrderIsNotSent) {
    Captured foreign = to("server", 1, Bytes(4));
    foreign.isLittleEndian = !isLittleEndian;
    Captured empty = to("server", 2);
    empty.isLittleEndian = !isLittleEndian;
    write({foreign, empty});
    const Outcome outcome = replay();
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, summary(1, 1));
    EXPECT_THAT(outcome.err, StartsWith("linx: not sent: signal 1 has a payload of a "));
    expectSignal(server, 2);
    expectNothing(server);
}

TEST_F(ReplayTest, ThePaceIsThatOfTheCaptureOrAnother) {
    write({to("server", 1), to("server", 2)}, 3600000000);  // an hour
    EXPECT_EQ(replay({"--pace", "0"}).status, 0);
    expectSignal(server, 1);
    expectSignal(server, 2);
    EXPECT_EQ(replay({"--pace", "1e6"}).status, 0);
    expectSignal(server, 1);
    expectSignal(server, 2);
    const LinxRun run({"replay", capture});
    expectSignal(server, 1);
    expectNothing(server);
}

TEST_F(ReplayTest, AnswersDoNotPileUp) {
    write({to("server", 1), to("server", 1)}, 200000);
    LinxRun run({"replay", capture});
    const Received request = expectSignal(server, 1);
    const std::string own = "linx." + std::to_string(run.pid());
    ASSERT_EQ(send(server, request.sender, 2), 0);
    expectSignal(server, 1);
    EXPECT_EQ(run.finish().status, 0);
    const nlohmann::json all = nlohmann::json::parse(runLinx({"list", "-j"}).out, nullptr, false);
    EXPECT_EQ(all.size(), 1u) << all;
}

TEST_F(ReplayTest, WhatIsNoCaptureIsToldAndNothingSent) {
    EXPECT_THAT(replay().err, StartsWith("linx: " + capture + " cannot be read: No such file"));
    std::ofstream(capture) << "something else altogether";
    const Outcome outcome = replay();
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, HasSubstr("it is no capture in the format pcapng"));
    EXPECT_EQ(outcome.out, "");
    expectNothing(server);
}

TEST_F(ReplayTest, OfACaptureThatWasCutShortIsSentWhatIsWhole) {
    write({to("server", 1), to("server", 2), to("server", 3)});
    const std::string whole = contentOf(capture);
    std::ofstream(capture, std::ios::binary) << whole.substr(0, whole.size() - 80);
    const Outcome outcome = replay();
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, HasSubstr("it ends in a block"));
    expectSignal(server, 1);
    expectSignal(server, 2);
    expectNothing(server);
}

TEST_F(ReplayTest, PacketsOfOthersAreTold) {
    std::ofstream(capture, std::ios::binary) << writtenBy([](std::FILE* file) {
        tools::PcapngWriter writer(file, "domain", 96);
        writer.write({0, 4, {'w', 'h', 'a', 't'}});
    });
    EXPECT_EQ((Outcome{1, summary(0, 1), "linx: not sent: signal 1 is none that `linx capture` has written\n"}),
              replay());
}

}  // namespace
