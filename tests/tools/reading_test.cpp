// What is shown of a domain: in text as a transcript, in JSON with keys on which scripts rely.

#include <gmock/gmock.h>
#include <pwd.h>
#include <signal.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>

#include "tests/tools/scene.h"

namespace {

using Json = nlohmann::json;
using Strings = std::vector<std::string>;

std::string ownName() {
    const passwd* entry = getpwuid(geteuid());
    return entry == nullptr ? std::to_string(geteuid()) : entry->pw_name;
}

class ReadingTest : public SceneTest {
protected:
    /// What `linx` prints about the scene, squeezed.
    static std::string textOf(const std::vector<std::string>& arguments) {
        const Outcome outcome = runLinx(arguments);
        EXPECT_EQ(outcome.status, 0) << outcome;
        EXPECT_EQ(outcome.err, "");
        return squeezed(outcome.out);
    }
    static Json jsonOf(std::vector<std::string> arguments) {
        arguments.push_back("--json");
        const Outcome outcome = runLinx(arguments);
        EXPECT_EQ(outcome.status, 0) << outcome;
        return Json::parse(outcome.out, nullptr, false);
    }

    std::string expected(std::string text) const {
        text = filled(text);
        replace(text, "@comm", processName());
        replace(text, "@user", ownName());
        return text;
    }
};

std::vector<std::string> keysOf(const Json& object) {
    std::vector<std::string> keys;
    for (const auto& item : object.items()) keys.push_back(item.key());
    return keys;
}

TEST_F(ReadingTest, ListShowsWhoIsThere) {
    const std::string transcript = expected(
        "NAME SPID PID PROCESS USER STATE QUEUED DEEPEST IN OUT HELD WAITS-FOR\n"
        "client @client @comm @user sleeping 0 0 0 4 0 B -\n"
        "server @server @comm @user running 3 4 1 0 1.1 KiB -\n");
    EXPECT_EQ(transcript, textOf({"list"}));
    EXPECT_EQ(transcript, textOf({}));
}

TEST_F(ReadingTest, ListInJsonHasTheKeysThatScriptsRelyOn) {
    const Json all = jsonOf({"list"});
    ASSERT_EQ(all.size(), 2u);
    EXPECT_THAT(keysOf(all[1]), testing::UnorderedElementsAre("name", "spid", "pid", "process", "user", "state",
                                                              "queued", "deepest", "in", "out", "held", "waits_for"));
    EXPECT_EQ(all[1]["name"], "server");
    EXPECT_EQ(serverSpid, all[1]["spid"]);
    EXPECT_EQ(server->pid(), all[1]["pid"]);
    EXPECT_EQ(processName(), all[1]["process"]);
    EXPECT_EQ(ownName(), all[1]["user"]);
    EXPECT_EQ(all[1]["state"], "running");
    EXPECT_EQ(all[1]["queued"], 3);
    EXPECT_EQ(all[1]["deepest"], 4);
    EXPECT_EQ(all[1]["in"], 1);
    EXPECT_EQ(all[0]["out"], 4);
    EXPECT_EQ(17 * 64, all[1]["held"]);
    EXPECT_TRUE(all[1]["waits_for"].is_null());
}

TEST_F(ReadingTest, OptionsStandBeforeTheVerbOrBehindIt) {
    EXPECT_EQ(runLinx({"list", "-j", "-N", "1"}), runLinx({"-j", "-N", "1", "list"}));
    EXPECT_EQ(jsonOf({"-N", "1"}).size(), 1u);
    const linxtest::ScopedVariable elsewhere("LINX_DOMAIN", "/nowhere");
    EXPECT_EQ(jsonOf({"list", "--domain", domain.path()}).size(), 2u);
    EXPECT_EQ(jsonOf({"--domain", domain.path(), "list"}).size(), 2u);
}

TEST_F(ReadingTest, StatusShowsOneInFull) {
    const std::string columns = filled("@server");
    const std::string spid = columns.substr(0, columns.find(' '));
    const std::string text = textOf({"status", "server"});
    EXPECT_THAT(text, testing::StartsWith("name server\nspid " + spid + "\nprocess " + std::to_string(server->pid()) +
                                          " " + processName() + ", user " + ownName() +
                                          "\nstate running\nqueue 3 now, 4 at the deepest\nreceived 1 signals, 1004 "
                                          "B\nsent 0 signals, 0 B\ndropped 0\n"));
    EXPECT_THAT(text, testing::HasSubstr("held 1.1 KiB in 1 signals\n"));
    EXPECT_THAT(text, testing::HasSubstr("\nhunts absent\n"));
    EXPECT_THAT(text, testing::HasSubstr("\nQUEUED NUMBER SIGNALS BYTES FROM\n"
                                         "200 2 128 B client 2\n"
                                         "300 1 5.1 KiB client 1\n"));
}

TEST_F(ReadingTest, StatusInJsonHasTheKeysThatScriptsRelyOn) {
    const Json one = jsonOf({"status", "server"});
    EXPECT_THAT(keysOf(one), testing::UnorderedElementsAre(
                                 "name", "spid", "pid", "process", "user", "state", "deepest", "in", "out", "dropped",
                                 "refused", "log", "sleeps", "rings", "held", "lent", "leased", "share", "queued",
                                 "blocks", "hunts", "supervised", "supervisors", "timeouts", "errors"));
    ASSERT_EQ(one["queued"].size(), 2u);
    EXPECT_EQ((Json{{"number", 200}, {"signals", 2}, {"bytes", 128}, {"senders", {{"client", 2}}}}),
              one["queued"][0]);
    EXPECT_EQ(Json{"absent"}, one["hunts"]);
    EXPECT_THAT(keysOf(one["blocks"][0]), testing::UnorderedElementsAre("block_bytes", "signals", "bytes"));
    EXPECT_EQ(one["dropped"], 0);
}

/// What the status says of `key`, a line each.
Strings factsOf(const std::string& text, const std::string& key) {
    Strings facts;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (line.compare(0, key.size() + 1, key + " ") == 0) facts.push_back(line.substr(key.size() + 1));
    }
    return facts;
}

TEST_F(ReadingTest, StatusShowsWhoSupervisesWhomUntilTheNoticeIsThere) {
    constexpr uint32_t notice = 105;
    Endpoint watchdog("watchdog");
    for (const LinxSpid supervised : {serverSpid, clientSpid, clientSpid, spidOf(watchdog)}) {
        ASSERT_NE(attach(watchdog, supervised, notice), 0u);
    }
    const Json one = jsonOf({"status", "watchdog"});
    EXPECT_EQ((Json{{"server", 1}, {"client", 2}, {"watchdog", 1}}), one["supervised"]);
    EXPECT_EQ((Json{{"watchdog", 1}}), one["supervisors"]);
    EXPECT_EQ(Json::array(), one["queued"]);
    EXPECT_EQ(jsonOf({"list"})[2]["queued"], 0);
    EXPECT_EQ((Json{{"watchdog", 2}}), jsonOf({"status", "client"})["supervisors"]);
    EXPECT_EQ(factsOf(textOf({"status", "watchdog"}), "supervises"), Strings{"client 2 times, server, watchdog"});
    EXPECT_EQ(factsOf(textOf({"status", "server"}), "supervised"), Strings{"by watchdog"});

    client->tell();
    EXPECT_EQ(client->exitStatus(), 0);
    ASSERT_TRUE(watchdog.awaitReadable());
    expectSignal(watchdog, notice);
    const Json later = jsonOf({"status", "watchdog"});
    EXPECT_EQ((Json{{"server", 1}, {"watchdog", 1}}), later["supervised"]);
    EXPECT_EQ(later["queued"][0]["signals"], 1) << "the other one";
    EXPECT_EQ(later["deepest"], 1);
}

TEST_F(ReadingTest, StatusShowsTimeoutsUntilTheyFire) {
    Endpoint endpoint("endpoint");
    LinxRef hour = linx_request_tmo(endpoint, 3600 * 1000, nullptr);
    ASSERT_NE(hour, 0u);
    ASSERT_NE(linx_request_tmo(endpoint, UINT32_MAX, nullptr), 0u);
    ASSERT_NE(linx_request_tmo(endpoint, 0, nullptr), 0u);
    const Json three = jsonOf({"status", "endpoint"})["timeouts"];
    ASSERT_EQ(three.size(), 3u);
    EXPECT_EQ((Json{{"number", LINX_OS_TIMEOUT_SIG}, {"seconds", 0.0}}), three[0]) << "nobody has looked yet";
    EXPECT_THAT(three[1]["seconds"].get<double>(), testing::AllOf(testing::Gt(3500), testing::Le(3600.01)));
    EXPECT_NEAR(three[2]["seconds"].get<double>(), UINT32_MAX / 1e3, 100);
    EXPECT_EQ(factsOf(textOf({"status", "endpoint"}), "time-out").size(), 3u);

    expectSignal(endpoint, LINX_OS_TIMEOUT_SIG);
    EXPECT_EQ(jsonOf({"status", "endpoint"})["timeouts"].size(), 2u);
    EXPECT_EQ(linx_cancel_tmo(endpoint, &hour), 0);
    EXPECT_EQ(jsonOf({"status", "endpoint"})["timeouts"].size(), 1u);
}

TEST_F(ReadingTest, StatusShowsTheLastSignalsThatWereNotSent) {
    client->tell();
    EXPECT_EQ(client->exitStatus(), 0);
    Endpoint endpoint("endpoint");
    constexpr uint32_t most = 8;
    EXPECT_EQ(send(endpoint, 0x7f00beef, 1), ESRCH);
    for (uint32_t number = 2; number <= 1 + most; ++number) {
        EXPECT_EQ(send(endpoint, clientSpid, number), ECONNRESET);
        const Json errors = jsonOf({"status", "endpoint"})["errors"];
        EXPECT_EQ(errors.size(), std::min(number, most));
        EXPECT_EQ((Json{{"number", number}, {"size", 4}, {"to", "client"}, {"error", std::strerror(ECONNRESET)}}),
                  errors.back());
    }
    const Strings shown = factsOf(textOf({"status", "endpoint"}), "not");
    ASSERT_EQ(shown.size(), size_t{most});
    EXPECT_EQ(shown[0], "sent 2 to client: " + std::string(std::strerror(ECONNRESET)));
}

TEST_F(ReadingTest, HoldersShowsWhoHasWhichMemory) {
    EXPECT_EQ(textOf({"holders"}),
              "OWNER SIGNALS BYTES OF WHICH QUEUED ON ITS ACCOUNT OLDEST SIZES\n"
              "server 4 6.2 KiB 5.2 KiB 64 B - 1 of 5.1 KiB, 1 of 1.1 KiB, 2 of 64 B\n"
              "client 0 0 B 0 B 6.2 KiB - -\n");
    EXPECT_EQ(textOf({"holders", "client"}),
              "OWNER SIGNALS BYTES OF WHICH QUEUED ON ITS ACCOUNT OLDEST SIZES\n"
              "client 0 0 B 0 B 6.2 KiB - -\n");
}

TEST_F(ReadingTest, HoldersInJsonHasTheKeysThatScriptsRelyOn) {
    const Json all = jsonOf({"holders"});
    ASSERT_EQ(all.size(), 2u);
    EXPECT_THAT(keysOf(all[0]),
                testing::UnorderedElementsAre("owner", "bytes", "signals", "oldest_seconds", "queued_bytes",
                                              "queued_signals", "lent_bytes", "lent_signals", "blocks"));
    EXPECT_TRUE(all[0]["oldest_seconds"].is_null()) << "neither has slept since";
    ASSERT_EQ(all[0]["blocks"].size(), 3u);
    EXPECT_EQ((Json{{"block_bytes", 64}, {"signals", 2}}), all[0]["blocks"][0]);
    EXPECT_EQ(all[0]["owner"], "server");
    EXPECT_EQ(all[0]["signals"], 4);
    EXPECT_EQ(all[0]["queued_signals"], 3);
}

TEST_F(ReadingTest, AStoppedProcessIsShownAsOne) {
    server->stop();
    EXPECT_EQ(jsonOf({"list"})[1]["state"], "stopped");
    server->cont();
}

TEST_F(ReadingTest, WhoHasReceivedAllSleepsAndWhoHasNotComeForAllDoesNot) {
    client->tell();
    EXPECT_EQ(client->exitStatus(), 0);
    Endpoint self("self");
    ASSERT_EQ(send(self, spidOf(self), 1), 0);
    EXPECT_EQ(jsonOf({"status", "self"})["state"], "running");
    expectSignal(self, 1);
    expectNothing(self);
    EXPECT_EQ(jsonOf({"status", "self"})["state"], "sleeping");
}

TEST_F(ReadingTest, TheKilledAreShownAsDeadAndWhatTheyHadIsStillTold) {
    const std::string spid = filled("@server").substr(0, 8);
    server->kill9();
    client->kill9();
    EXPECT_THAT(textOf({"list"}), testing::HasSubstr("server " + spid + " - - - dead 3 4 1 0 1.1 KiB -\n"));
    const Json one = jsonOf({"status", "server"});
    EXPECT_EQ(one["state"], "dead");
    EXPECT_TRUE(one["pid"].is_null());
    EXPECT_EQ(one["queued"].size(), 2u);
    EXPECT_EQ(Json{"absent"}, one["hunts"]);
}

TEST_F(ReadingTest, TheKilledForWhomNobodyHasWaitedAreShownAsDeadToo) {
    ASSERT_EQ(kill(server->pid(), SIGKILL), 0);
    ASSERT_TRUE(comesTrue([this] { return server->hasEnded(); }));
    const Json dead = jsonOf({"list"})[1];
    EXPECT_EQ(dead["state"], "dead");
    EXPECT_TRUE(dead["pid"].is_null());
    EXPECT_EQ(jsonOf({"list"})[0]["state"], "sleeping");
}

TEST_F(ReadingTest, WhoHasEndedIsShownOnRequest) {
    client->tell();
    EXPECT_EQ(client->exitStatus(), 0);
    EXPECT_EQ(jsonOf({"list"}).size(), 1u);
    const Json all = jsonOf({"list", "--all"});
    ASSERT_EQ(all.size(), 2u);
    EXPECT_EQ(all[1]["name"], "client");
    EXPECT_EQ(all[1]["state"], "ended");
    EXPECT_EQ(jsonOf({"status", "client"})["state"], "ended");
    EXPECT_EQ(all[0]["queued"], 3) << "what it had sent is there";
}

TEST_F(ReadingTest, OfThoseOfOneNameWhoHaveEndedTheLastIsShown) {
    Endpoint other("other");
    for (uint64_t signals = 1; signals <= 3; ++signals) {
        Endpoint one("restarted");
        for (uint64_t i = 0; i < signals; ++i) ASSERT_EQ(send(one, spidOf(other), 1), 0);
        one.close();
        EXPECT_EQ(jsonOf({"status", "restarted"})["out"]["signals"], signals);
    }
}

TEST_F(ReadingTest, OfTheParentAndTheChildThatShareAnEndpointTheParentIsShown) {
    Child parent([](Line& test) {
        Endpoint endpoint("shared");
        const pid_t child = fork();
        if (child == 0) {
            pause();
            _exit(0);
        }
        test.tell(static_cast<uint32_t>(child));
        test.hear();
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    });
    parent.hear();
    EXPECT_EQ(parent.pid(), jsonOf({"status", "shared"})["pid"]);
    parent.tell();
    EXPECT_EQ(parent.exitStatus(), 0);
}

TEST_F(ReadingTest, ACopyOfAnArenaIsReadByItself) {
    const std::string copy = domain.pathOf("copy");
    std::filesystem::copy_file(domain.pathOf("arena"), copy);
    server->kill9();
    client->kill9();
    const Json all = jsonOf({"list", "--file", copy});
    ASSERT_EQ(all.size(), 2u);
    EXPECT_EQ(all[1]["state"], "running") << "when it was copied";
    EXPECT_EQ(all[1]["queued"], 3);
    EXPECT_EQ(jsonOf({"status", "server", "--file", copy})["queued"].size(), 2u);
}

TEST_F(ReadingTest, LookingChangesNothing) {
    const std::string before = contentOf(domain.pathOf("arena"));
    const uint64_t bytesBefore = domain.arenaBytes();
    for (const std::string verb : {"list", "holders", "doctor"}) runLinx({verb});
    runLinx({"status", "server"});
    EXPECT_TRUE(before == contentOf(domain.pathOf("arena")));
    EXPECT_EQ(bytesBefore, domain.arenaBytes());
    EXPECT_EQ(domain.files().size(), 3u);
}

}  // namespace
