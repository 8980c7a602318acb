// Signals shown and captured as they are sent. The program has a tap that plays what the test writes.

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cerrno>
#include <csignal>
#include <nlohmann/json.hpp>

#include "tests/tools/in_memory.h"
#include "tests/tools/scene.h"
#include "tools/captured.h"
#include "tools/pcapng.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;
using tools::Captured;
using Json = nlohmann::json;

// A Thursday in 2026.
constexpr uint64_t start = 1774518896123456789;

class WatchingTest : public ProcessTest {
protected:
    WatchingTest() { std::ofstream{script}; }

    void TearDown() override {
        client.close();
        server.close();
        ProcessTest::TearDown();
    }

    void sent(LinxSpid from, LinxSpid to, uint32_t number, const std::string& payload = "", uint32_t cut = 0) {
        std::ofstream(script, std::ios::app) << start + 1000 * ++count << " " << from << " " << to << " " << number
                                             << " " << 4 + payload.size() / 2 + cut << " " << payload << std::endl;
    }
    void say(const std::string& line) { std::ofstream(script, std::ios::app) << line << std::endl; }

    /// A question and its answer, a signal to another and one from there.
    void play() {
        sent(clientSpid, serverSpid, 2000, "01020304aabb");
        sent(serverSpid, clientSpid, 2001);
        sent(clientSpid, otherSpid, 3000);
        sent(otherSpid, serverSpid, 2000);
    }

    /// The signals that are shown of those that were sent.
    std::vector<std::string> shown(std::vector<std::string> arguments) {
        say("end");
        arguments.insert(arguments.begin(), {"monitor", "-j"});
        const Outcome outcome = runLinx(arguments);
        EXPECT_EQ(outcome.status, 0) << outcome;
        std::vector<std::string> lines;
        std::istringstream out(outcome.out);
        for (std::string line; std::getline(out, line);) {
            const Json json = Json::parse(line, nullptr, false);
            lines.push_back(json["from"].get<std::string>() + ">" + json["to"].get<std::string>() + " " +
                            std::to_string(json["number"].get<uint32_t>()));
        }
        return lines;
    }

    static std::vector<Captured> signalsIn(const std::string& capture) {
        std::vector<Captured> signals;
        const tools::File file = fileOf(capture);
        tools::PcapngReader reader(file.get(), "capture");
        while (const std::optional<tools::Packet> packet = reader.next()) {
            const std::optional<Captured> signal = fromPacket(*packet);
            EXPECT_TRUE(signal);
            if (signal) signals.push_back(*signal);
        }
        return signals;
    }

    const std::string script = domain.pathOf("script");
    const linxtest::ScopedVariable tap{"LINX_TEST_TAP", script.c_str()};
    const linxtest::ScopedVariable zone{"TZ", "UTC"};
    Endpoint client{"client"};
    Endpoint server{"server"};
    const LinxSpid clientSpid = spidOf(client);
    const LinxSpid serverSpid = spidOf(server);
    const LinxSpid otherSpid = spidOf(Endpoint("other"));
    uint64_t count = 0;
};

TEST_F(WatchingTest, MonitorShowsALineForEachSignal) {
    play();
    EXPECT_EQ((Outcome{0,
                       "TIME             FROM            TO                  NUMBER     SIZE  DATA\n"
                       "09:54:56.123457  client          server                2000       10  01020304 aabb\n"
                       "09:54:56.123458  server          client                2001        4\n"
                       "09:54:56.123459  client          other                 3000        4\n"
                       "09:54:56.123460  other           server                2000        4\n",
                       ""}),
              runLinx({"monitor", "-N", "4"}));
}

TEST_F(WatchingTest, MonitorShowsTheBeginningOfAPayloadAndAsMuchAsItIsTold) {
    sent(clientSpid, serverSpid, 1, "000102030405060708090a0b0c0d0e0f1011", 100);
    EXPECT_THAT(runLinx({"monitor", "-N", "1"}).out, HasSubstr("  122  00010203 04050607 08090a0b 0c0d0e0f...\n"));
    EXPECT_THAT(runLinx({"monitor", "-N", "1", "--snaplen", "2"}).out, HasSubstr("  122  0001...\n"));
    EXPECT_THAT(runLinx({"monitor", "-N", "1", "--snaplen", "0"}).out, HasSubstr("  122  ...\n"));
}

TEST_F(WatchingTest, ATerminalGetsAsMuchOfAPayloadAsFitsIntoTheLine) {
    const linxtest::ScopedVariable plain("NO_COLOR", "1");
    sent(clientSpid, serverSpid, 1, "000102030405060708090a0b0c0d0e0f1011", 100);
    EXPECT_THAT(runLinxOnTerminal({"monitor", "-N", "1"}, 0).out,
                HasSubstr("  122  00010203 04050607 08090a0b 0c0d"));
    EXPECT_THAT(runLinxOnTerminal({"monitor", "-N", "1"}, 80).out, HasSubstr("  122  0001020...\n"));
    EXPECT_THAT(runLinxOnTerminal({"monitor", "-N", "1"}, 70).out, HasSubstr("  122\n"));
}

TEST_F(WatchingTest, MonitorInJsonHasALineForEachSignal) {
    play();
    const Outcome outcome = runLinx({"monitor", "-j", "-N", "2"});
    EXPECT_EQ((Outcome{0,
                       R"({"time":"2026-03-26T09:54:56.123457789Z","from":"client","to":"server","number":2000,)"
                       R"("size":10,"data":"01020304aabb"})"
                       "\n"
                       R"({"time":"2026-03-26T09:54:56.123458789Z","from":"server","to":"client","number":2001,)"
                       R"("size":4,"data":""})"
                       "\n",
                       ""}),
              outcome);
}

TEST_F(WatchingTest, AllFiltersHoldTogether) {
    play();
    EXPECT_THAT(shown({}),
                ElementsAre("client>server 2000", "server>client 2001", "client>other 3000", "other>server 2000"));
    EXPECT_THAT(shown({"client"}), ElementsAre("client>server 2000", "server>client 2001", "client>other 3000"));
    EXPECT_THAT(shown({"other", "nobody"}), ElementsAre("client>other 3000", "other>server 2000"));
    EXPECT_THAT(shown({"--number", "2000"}), ElementsAre("client>server 2000", "other>server 2000"));
    EXPECT_THAT(shown({"--number", "2001", "--number", "3000"}),
                ElementsAre("server>client 2001", "client>other 3000"));
    EXPECT_THAT(shown({"--from", "client"}), ElementsAre("client>server 2000", "client>other 3000"));
    EXPECT_THAT(shown({"--to", "server"}), ElementsAre("client>server 2000", "other>server 2000"));
    EXPECT_THAT(shown({"--from", "other", "--to", "server"}), ElementsAre("other>server 2000"));
    EXPECT_THAT(shown({"--number", "2000", "client"}), ElementsAre("client>server 2000"));
    EXPECT_THAT(shown({"--number", "3000", "--to", "server"}), ElementsAre());
    EXPECT_THAT(shown({"nobody"}), ElementsAre());
}

TEST_F(WatchingTest, WhoHasEndedIsStillCalledWhatItWasAndWhoIsUnknownByItsSpid) {
    client.close();
    sent(clientSpid, otherSpid, 1);
    sent(0x3fffffff, serverSpid, 1);
    sent(0, serverSpid, 1);
    EXPECT_THAT(shown({}), ElementsAre("client>other 1", "3fffffff>server 1", "00000000>server 1"));
}

TEST_F(WatchingTest, NamesCannotSteerTheTerminal) {
    Endpoint evil("\033[2Jevil");
    sent(spidOf(evil), serverSpid, 1);
    EXPECT_THAT(runLinx({"monitor", "-N", "1"}).out, HasSubstr("  \\x1b[2Jevil     server"));
}

TEST_F(WatchingTest, WhatWasLostIsTold) {
    play();
    say("lost 7");
    say("end");
    const Outcome outcome = runLinx({"monitor"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.err, StartsWith("linx: 7 signals are missing"));
    EXPECT_EQ(runLinx({"capture", "-w", "-"}).err, "captured 4 signals, lost 7\n");
}

TEST_F(WatchingTest, TimeThatRunsOutBeforeThereWereEnoughIsTold) {
    play();
    const Outcome outcome = runLinx({"monitor", "-N", "5", "--timeout", "2s"});
    EXPECT_EQ(outcome.status, 4);
    EXPECT_EQ(outcome.err, "linx: 4 of 5 signals were sent in time\n");
    const Outcome capture = runLinx({"capture", "-w", "-", "-N", "5", "--timeout", "2s"});
    EXPECT_EQ(capture.status, 4);
    EXPECT_EQ(capture.err, "captured 4 signals, lost 0\nlinx: 4 of 5 signals were sent in time\n");
    EXPECT_EQ(signalsIn(capture.out).size(), 4u);
}

TEST_F(WatchingTest, WhoMayNotWatchIsToldWhy) {
    const auto expectRefusal = [&](int reason, const std::string& text) {
        std::ofstream(script) << "error " << reason << std::endl;
        const std::string file = domain.pathOf("capture");
        std::ofstream(file) << "precious";
        for (const std::vector<std::string>& verb : {std::vector<std::string>{"monitor"}, {"capture", "-w", file}}) {
            const Outcome outcome = runLinx(verb);
            EXPECT_EQ(outcome.status, 1);
            EXPECT_EQ(outcome.out, "");
            EXPECT_THAT(outcome.err, StartsWith("linx: " + text));
        }
        EXPECT_EQ(contentOf(file), "precious") << "nothing is written over before there is something to write";
    };
    expectRefusal(EBUSY, "another process watches " + domain.path());
    expectRefusal(EACCES, "no permission to watch " + domain.path());
    expectRefusal(ENOTSUP, domain.path() + " cannot be watched: Operation not supported");
}

TEST_F(WatchingTest, ACaptureHoldsWhatWasSent) {
    play();
    const std::string file = domain.pathOf("capture");
    EXPECT_EQ((Outcome{0, "", "captured 3 signals, lost 0\n"}),
              runLinx({"capture", "-w", file, "client", "-N", "3"}));
    const std::vector<Captured> signals = signalsIn(contentOf(file));
    ASSERT_EQ(signals.size(), 3u);
    EXPECT_EQ(signals[0].nanoseconds, start + 1000);
    EXPECT_EQ(signals[0].fromName, "client");
    EXPECT_EQ(signals[0].toName, "server");
    EXPECT_EQ(numberOf(signals[0].from), clientSpid);
    EXPECT_EQ(numberOf(signals[0].to), serverSpid);
    EXPECT_EQ(signals[0].number, 2000u);
    EXPECT_EQ(signals[0].size, 10u);
    EXPECT_EQ(signals[0].isLittleEndian, __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__);
    EXPECT_EQ(signals[0].data, (tools::Bytes{1, 2, 3, 4, 0xaa, 0xbb}));
    EXPECT_EQ(signals[2].toName, "other");
}

TEST_F(WatchingTest, AQuietCaptureSaysNothing) {
    play();
    const Outcome outcome = runLinx({"capture", "-q", "-w", "-", "-N", "4"});
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(signalsIn(outcome.out).size(), 4u);
}

TEST_F(WatchingTest, ACaptureCutsPayloadsAndTellsTheirSize) {
    sent(clientSpid, serverSpid, 1, "0102030405", 5000);
    const std::vector<Captured> signals = signalsIn(runLinx({"capture", "-w-", "-N1", "--snaplen", "3"}).out);
    ASSERT_EQ(signals.size(), 1u);
    EXPECT_EQ(signals[0].size, 5009u);
    EXPECT_EQ(signals[0].data, (tools::Bytes{1, 2, 3}));
    EXPECT_TRUE(signals[0].isCut());
}

TEST_F(WatchingTest, ACaptureInJsonHasTheLinesOfTheMonitor) {
    play();
    const std::string file = domain.pathOf("capture");
    EXPECT_EQ(runLinx({"capture", "-j", "-w", file, "-N", "4"}).status, 0);
    EXPECT_EQ(contentOf(file), runLinx({"monitor", "-j", "-N", "4"}).out);
}

/// Waits until the file has more than so many bytes.
void awaitMore(const std::string& file, size_t bytes) {
    struct stat status = {};
    EXPECT_TRUE(comesTrue([&] { return stat(file.c_str(), &status) == 0 && size_t(status.st_size) > bytes; }));
}

TEST_F(WatchingTest, ACaptureIsWholeWhenItIsAskedToEnd) {
    const std::string file = domain.pathOf("capture");
    for (const int request : {SIGINT, SIGTERM, SIGHUP}) {
        LinxRun run({"capture", "-w", file});
        awaitMore(file, 0);
        sent(clientSpid, serverSpid, 1);
        awaitMore(file, contentOf(file).size());
        kill(run.pid(), request);
        const Outcome outcome = run.finish();
        EXPECT_EQ(outcome.status, 0) << outcome;
        EXPECT_THAT(outcome.err, HasSubstr("lost 0\n"));
        EXPECT_EQ(signalsIn(contentOf(file)).size(), count);
        std::remove(file.c_str());
    }
}

TEST_F(WatchingTest, WhatWasCapturedIsInTheFileBeforeMoreIsWaitedFor) {
    const std::string file = domain.pathOf("capture");
    LinxRun run({"capture", "-w", file});
    awaitMore(file, 0);
    const size_t headers = contentOf(file).size();
    sent(clientSpid, serverSpid, 1);
    awaitMore(file, headers);
    kill(run.pid(), SIGKILL);
    run.finish();
    EXPECT_EQ(signalsIn(contentOf(file)).size(), 1u);
}

TEST_F(WatchingTest, APipeGetsEachSignalAtOnceAndItsReadersEndIsTheEnd) {
    const std::string pipe = domain.pathOf("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    LinxRun run({"capture", "-j", "-w", pipe});
    {
        std::ifstream reader(pipe);
        for (uint32_t number = 1; number <= 3; ++number) {
            sent(clientSpid, serverSpid, number);
            std::string line;
            ASSERT_TRUE(std::getline(reader, line));
            EXPECT_EQ(Json::parse(line, nullptr, false)["number"], number);
        }
    }
    EXPECT_EQ((Outcome{0, "", "captured 3 signals, lost 0\n"}), run.finish()) << "though nothing more is sent";
}

TEST_F(WatchingTest, AWaitForTheReaderOfAPipeCanBeEnded) {
    const std::string pipe = domain.pathOf("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    LinxRun run({"capture", "-w", pipe});
    // It waits in the kernel for a reader; a request that comes before that would end it as well.
    ASSERT_TRUE(comesTrue([&] {
        std::ifstream status("/proc/" + std::to_string(run.pid()) + "/status");
        const std::string text(std::istreambuf_iterator<char>(status), {});
        return text.find("State:\tS") != std::string::npos &&
               text.find("SigCgt:\t0000000000000000") == std::string::npos;
    }));
    kill(run.pid(), SIGTERM);
    EXPECT_EQ(run.finish().status, 0);
}

TEST_F(WatchingTest, AnOutputThatCannotBeWrittenIsTold) {
    play();
    EXPECT_THAT(runLinx({"capture", "-w", "/nowhere/capture"}).err,
                StartsWith("linx: /nowhere/capture cannot be written: No such file"));
    const Outcome full = runLinx({"capture", "-w", "/dev/full"});
    EXPECT_EQ(full.status, 1);
    EXPECT_EQ(full.err, "linx: /dev/full cannot be written: No space left on device\n");
    EXPECT_EQ(WEXITSTATUS(std::system(LINX_PROGRAM " monitor -N 4 >/dev/full 2>/dev/null")), 1);
    EXPECT_EQ(statusWithoutReader({"monitor"}), 0);
    EXPECT_EQ(statusWithoutReader({"capture", "-w", "-"}), 0);
}

TEST_F(WatchingTest, ATerminalGetsNoPackets) {
    play();
    const Outcome outcome = runLinxOnTerminal({"capture", "-w", "-", "-N", "4"});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(runLinxOnTerminal({"capture", "-j", "-w", "-", "-N", "4"}).status, 0);
}

}  // namespace
