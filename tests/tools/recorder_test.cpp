// What endpoints record of themselves, read while they live and after they were killed.

#include <gmock/gmock.h>
#include <sys/wait.h>

#include <csignal>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>

#include "tests/kit/in_time.h"
#include "tests/kit/readable.h"
#include "tests/tools/scene.h"

namespace {

using Json = nlohmann::json;

constexpr uint32_t lastEvents = 64;

std::vector<Json> recorded(std::vector<std::string> arguments = {}) {
    arguments.insert(arguments.begin(), {"record", "-j"});
    const Outcome outcome = runLinx(arguments);
    EXPECT_EQ(outcome.status, 0) << outcome;
    std::vector<Json> events;
    std::istringstream lines(outcome.out);
    for (std::string line; std::getline(lines, line);) events.push_back(Json::parse(line, nullptr, false));
    return events;
}

std::vector<Json> of(const std::string& endpoint, const std::vector<Json>& all) {
    std::vector<Json> events;
    std::copy_if(all.begin(), all.end(), std::back_inserter(events),
                 [&](const Json& event) { return event["endpoint"] == endpoint; });
    return events;
}

Json statusOf(const std::string& name) {
    return Json::parse(runLinx({"status", name, "-j"}).out, nullptr, false);
}

class RecorderTest : public ProcessTest {};

TEST_F(RecorderTest, TheRecordOfTheKilledIsWholeAndInOneOrder) {
    constexpr uint32_t rounds = 100;
    Child server([](Line& test) {
        Endpoint endpoint("server");
        test.tell(spidOf(endpoint));
        for (uint32_t i = 0; i < rounds; ++i) {
            const Received request = expectSignal(endpoint, 1000 + i);
            ASSERT_EQ(send(endpoint, request.sender, 2000 + i), 0);
        }
        test.tell();
        test.hear();
    });
    const LinxSpid spid = server.hear();
    Child client([spid](Line& test) {
        Endpoint endpoint("client");
        for (uint32_t i = 0; i < rounds; ++i) {
            ASSERT_EQ(send(endpoint, spid, 1000 + i, {i}), 0);
            expectSignal(endpoint, 2000 + i);
        }
        test.tell();
        test.hear();
    });
    client.hear();
    server.hear();
    server.kill9();
    client.kill9();

    const std::vector<Json> all = recorded();
    std::map<std::pair<std::string, uint32_t>, size_t> sent;
    for (size_t i = 0; i < all.size(); ++i) {
        EXPECT_EQ(all[i].size(), 6u);
        const std::string endpoint = all[i]["endpoint"];
        if (all[i]["kind"] == "sent") sent[{endpoint, all[i]["number"]}] = i;
    }
    size_t paired = 0;
    for (size_t i = 0; i < all.size(); ++i) {
        if (all[i]["kind"] != "received") continue;
        const auto sending = sent.find({all[i]["peer"], all[i]["number"]});
        if (sending == sent.end()) continue;
        EXPECT_LT(sending->second, i) << all[i];
        ++paired;
    }
    EXPECT_GT(paired, 10u);
    for (const std::string name : {"server", "client"}) {
        const std::vector<Json> own = of(name, all);
        ASSERT_EQ(lastEvents, own.size()) << name;
        for (size_t i = 1; i < own.size(); ++i) EXPECT_EQ(own[i - 1]["count"].get<uint32_t>() + 1, own[i]["count"]);
    }
    const auto isLastSignal = [](const Json& event) { return event["kind"] == "received"; };
    const std::vector<Json> own = of("client", all);
    const auto last = std::find_if(own.rbegin(), own.rend(), isLastSignal);
    ASSERT_NE(last, own.rend());
    EXPECT_EQ(2000 + rounds - 1, (*last)["number"]);
    EXPECT_EQ((*last)["size"], 4);
    EXPECT_EQ((*last)["peer"], "server");
}

TEST_F(RecorderTest, CountersAddUpToWhatWasSentAndReceived) {
    Endpoint a("a"), b("b");
    constexpr uint32_t signals = 1000;
    uint64_t bytes = 0;
    for (uint32_t i = 0; i < signals; ++i) {
        ASSERT_EQ(sendBytes(a, spidOf(b), i, Bytes(i % 300)), 0);
        bytes += 4 + i % 300;
        if (i % 3 == 0) expectAmongOthers(b, i);
    }
    ASSERT_EQ(send(a, spidOf(a), 7), 0);  // to itself
    expectSignal(a, 7);
    const Json sender = statusOf("a");
    EXPECT_EQ(signals + 1, sender["out"]["signals"]);
    EXPECT_EQ(bytes + 4, sender["out"]["bytes"]);
    EXPECT_EQ(sender["in"]["signals"], 1);
    EXPECT_EQ((signals + 2) / 3, statusOf("b")["in"]["signals"]);
    while (receiveNumber(b) != 0 || statusOf("b")["in"]["signals"] != signals) {
    }
    EXPECT_EQ(bytes, statusOf("b")["in"]["bytes"]);
}

TEST_F(RecorderTest, WhatIsRefusedIsCountedByReasonAndRecorded) {
    Endpoint client("client");
    LinxSpid gone = 0;
    {
        Endpoint server("server");
        gone = spidOf(server);
        ASSERT_EQ(send(client, gone, 1), 0);
    }
    EXPECT_EQ(send(client, gone, 2), ECONNRESET);
    EXPECT_EQ(send(client, 0x7fff, 3), ESRCH);
    const Json status = statusOf("client");
    EXPECT_EQ(status["out"]["signals"], 1);
    EXPECT_EQ(status["dropped"], 2);
    EXPECT_EQ(status["refused"]["ended"], 1);
    EXPECT_EQ(status["refused"]["never_there"], 1);
    const std::vector<Json> own = of("client", recorded({"client"}));
    ASSERT_GE(own.size(), 2u);
    EXPECT_EQ(own.back()["kind"], "refused");
    EXPECT_EQ(own.back()["number"], 3);
    EXPECT_THAT(runLinx({"record"}).out, testing::HasSubstr("Connection reset"));
}

TEST_F(RecorderTest, TheRecordOfAnEndedOneBeginsWithItsOpeningAndEndsWithItsEnd) {
    { Endpoint ended("ended"); }
    const std::vector<Json> own = of("ended", recorded());
    ASSERT_EQ(own.size(), 2u);
    EXPECT_EQ(own[0]["kind"], "opened");
    EXPECT_EQ(own[1]["kind"], "closed");
    EXPECT_TRUE(own[0]["number"].is_null());
    EXPECT_TRUE(own[0]["peer"].is_null());
}

TEST_F(RecorderTest, WhatIsRecordedOfLongerAgoIsLeftOut) {
    Endpoint endpoint("endpoint");
    ASSERT_EQ(send(endpoint, spidOf(endpoint), 1), 0);
    expectSignal(endpoint, 1);
    EXPECT_EQ(recorded({"--since", "1000s"}).size(), 3u);
    EXPECT_FALSE(receive(endpoint, 20)) << "it sleeps, and so has the time";
    ASSERT_EQ(send(endpoint, spidOf(endpoint), 2), 0);
    const std::vector<Json> last = recorded({"--since", "1ms"});
    ASSERT_FALSE(last.empty());
    EXPECT_EQ(last.back()["number"], 2);
    for (const Json& event : last) EXPECT_NE(event["kind"], "slept") << "that was 20 ms ago";
    EXPECT_EQ(recorded({"--since", "0"}).size(), 1u) << "what may have been since the last time that is known";
    EXPECT_EQ(runLinx({"record", "--since", "soon"}).status, 2);
}

TEST_F(RecorderTest, NothingIsRecordedWhereThatIsTurnedOff) {
    const linxtest::ScopedVariable off("LINX_RECORD", "0");
    Endpoint silent("silent");
    for (uint32_t i = 0; i < 2 * lastEvents; ++i) {
        ASSERT_EQ(send(silent, spidOf(silent), 1), 0);
        expectSignal(silent, 1);
    }
    EXPECT_EQ(recorded(), std::vector<Json>());
    EXPECT_EQ(2 * lastEvents, statusOf("silent")["in"]["signals"]) << "counted it is";
}

TEST_F(RecorderTest, HzTellsWhoSendsAndWhoDoesNot) {
    Child busy([](Line& test) {
        Endpoint endpoint("busy");
        test.tell();
        while (!isReadable(test.descriptor())) {
            ASSERT_EQ(send(endpoint, spidOf(endpoint), 1, {1, 2}), 0);
            expectSignal(endpoint, 1);
        }
        test.hear();
    });
    busy.hear();
    Endpoint idle("idle");
    const Json rates = Json::parse(runLinx({"hz", "--timeout", "50ms", "-j"}).out, nullptr, false);
    busy.tell();
    EXPECT_EQ(busy.exitStatus(), 0);
    ASSERT_EQ(rates.size(), 2u);
    EXPECT_EQ(rates[0]["name"], "busy");
    EXPECT_GT(rates[0]["out_per_second"], 0.0);
    EXPECT_GT(rates[0]["in_per_second"], 0.0);
    EXPECT_GT(rates[0]["bytes_out_per_second"], rates[0]["out_per_second"]);
    EXPECT_EQ(rates[1]["out_per_second"], 0.0);
    EXPECT_EQ(rates[1].size(), 6u);
    EXPECT_EQ(runLinx({"hz", "nobody"}).status, 3);
}

TEST_F(RecorderTest, TopShowsATableAsOftenAsItLooks) {
    Endpoint endpoint("endpoint");
    const Outcome outcome = runLinx({"top", "--interval", "20ms", "--timeout", "60ms"});
    EXPECT_EQ(outcome.status, 0) << outcome;
    EXPECT_THAT(outcome.out, testing::HasSubstr("NAME"));
    EXPECT_THAT(outcome.out, testing::HasSubstr("endpoint"));
    EXPECT_THAT(outcome.out, testing::Not(testing::HasSubstr("\033")));
    EXPECT_EQ(runLinx({"top", "-j"}).status, 2);
}

/// Whether the process is that of a command with this argument.
bool isRunBy(pid_t pid, const std::string& argument) {
    std::ifstream command("/proc/" + std::to_string(pid) + "/cmdline");
    for (std::string word; std::getline(command, word, '\0');) {
        if (word == argument) return true;
    }
    return false;
}

/// Whether the process has the file open.
bool hasOpen(pid_t pid, const std::string& path) {
    const std::string descriptors = "/proc/" + std::to_string(pid) + "/fd/";
    const auto names = linxtest::namesIn(descriptors);
    return std::any_of(names.begin(), names.end(), [&](const std::string& name) {
        std::error_code isGone;
        return std::filesystem::read_symlink(descriptors + name, isGone) == path;
    });
}

TEST_F(RecorderTest, TopEndsWhenItIsAskedToHoweverSeldomItLooks) {
    Endpoint endpoint("endpoint");
    LinxRun top({"top", "--interval", "3600"});
    // Until it becomes the program it has open what this test has.
    const std::string arena = domain.pathOf("arena");
    ASSERT_TRUE(comesTrue([&] { return isRunBy(top.pid(), "--interval") && hasOpen(top.pid(), arena); }));
    // Again and again: the first may come before it waits.
    EXPECT_TRUE(comesTrue([&] {
        kill(top.pid(), SIGTERM);
        siginfo_t ended{};
        const auto pid = static_cast<id_t>(top.pid());
        return waitid(P_PID, pid, &ended, WEXITED | WNOWAIT | WNOHANG) == 0 && ended.si_pid == top.pid();
    }));
    kill(top.pid(), SIGKILL);
    const Outcome outcome = top.finish();
    EXPECT_EQ(outcome.status, 0) << outcome;
}

}  // namespace
