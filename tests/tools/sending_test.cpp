// What joins as an endpoint: sending, calling, waiting, shutting down.

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>

#include "platform/LogClient.h"
#include "tests/tools/scene.h"

namespace {

using testing::HasSubstr;

constexpr uint32_t question = 2000;
constexpr uint32_t answer = 2001;
constexpr uint32_t shutdownRequest = 1280;

/// A peer of the program's, in the process of the test.
class SendingTest : public ProcessTest {
protected:
    static Bytes bytesOf(const std::string& text) { return Bytes(text.begin(), text.end()); }

    static void expectDone(const Outcome& outcome) { EXPECT_EQ((Outcome{0, "", ""}), outcome); }
};

/// Answers each question with its own payload, for as long as it lives.
void answerAll(Line& test) {
    Endpoint endpoint("server");
    test.tell();
    while (true) {
        const Received request = expectSignal(endpoint, question);
        sendBytes(endpoint, request.sender, answer, request.payload);
    }
}

TEST_F(SendingTest, WhoHasNoStandardStreamsWritesIntoNoFileOfTheDomain) {
    Child server(answerAll);
    server.hear();
    const std::string call = LINX_PROGRAM " call server 2000 --reply 2001 --text hello <&- >&- 2>&-";
    EXPECT_EQ(std::system(call.c_str()), 0);
    EXPECT_EQ(runLinx({"list"}).status, 0);
}

TEST_F(SendingTest, AProcessWhoseNumberAnotherHasInItsNameIsServedAllTheSame) {
    Endpoint peer("peer");
    const std::string gate = domain.pathOf("gate");
    ASSERT_EQ(mkfifo(gate.c_str(), 0600), 0);
    FILE* shell = popen(("echo $$; read line < " + gate + "; exec " LINX_PROGRAM " send peer 7").c_str(), "r");
    ASSERT_NE(shell, nullptr);
    int process = 0;
    ASSERT_EQ(std::fscanf(shell, "%d", &process), 1);
    Endpoint namesake("linx." + std::to_string(process));
    std::ofstream(gate) << "go" << std::endl;
    EXPECT_EQ(pclose(shell), 0);
    expectSignal(peer, 7);
    unlink(gate.c_str());
}

TEST_F(SendingTest, ASignalWithoutAPayloadArrives) {
    Endpoint peer("peer");
    expectDone(runLinx({"send", "peer", "100"}));
    EXPECT_EQ(Bytes(), expectSignal(peer, 100).payload);
}

TEST_F(SendingTest, EveryKindOfPayloadArrives) {
    Endpoint peer("peer");
    expectDone(runLinx({"send", "peer", "1", "--text", "hello"}));
    EXPECT_EQ(bytesOf("hello"), expectSignal(peer, 1).payload);
    expectDone(runLinx({"send", "peer", "2", "--hex", "00ff 10:aB"}));
    EXPECT_EQ((Bytes{0x00, 0xff, 0x10, 0xab}), expectSignal(peer, 2).payload);
    expectDone(runLinx({"send", "peer", "0x3", "--u32", "1", "0xffffffff"}));
    const Received words = expectSignal(peer, 3);
    EXPECT_EQ(words.payload.size(), 8u);
    EXPECT_EQ(words.word(0), 1u);
    EXPECT_EQ(0xffffffffu, words.word(1));
    expectDone(runLinx({"send", "peer", "4", "-"}, "from a pipe"));
    EXPECT_EQ(bytesOf("from a pipe"), expectSignal(peer, 4).payload);
    std::ofstream(domain.pathOf("payload")) << "from a file";
    expectDone(runLinx({"send", "peer", "5", "--file", domain.pathOf("payload")}));
    EXPECT_EQ(bytesOf("from a file"), expectSignal(peer, 5).payload);
}

TEST_F(SendingTest, TheLargestPayloadArrivesAndOneByteMoreIsRefused) {
    Endpoint peer("peer");
    const std::string largest((1u << 20) - 4, 'x');
    expectDone(runLinx({"send", "peer", "1", "-"}, largest));
    EXPECT_EQ(largest.size(), expectSignal(peer, 1).payload.size());
    EXPECT_EQ((Outcome{2, "", "linx: a payload has at most 1048572 bytes\n"}),
              runLinx({"send", "peer", "1", "-"}, largest + "x"));
    expectNothing(peer);
}

TEST_F(SendingTest, APayloadThatIsNoneIsRefusedBeforeAnythingIsSent) {
    Endpoint peer("peer");
    for (const std::string hex : {"0", "0g", "zz", "001"}) {
        EXPECT_EQ(runLinx({"send", "peer", "1", "--hex", hex}).status, 2) << hex;
    }
    EXPECT_EQ(runLinx({"send", "peer", "1", "--hex", "00", "--text", "both"}).status, 2);
    EXPECT_EQ(runLinx({"send", "peer", "-1"}).status, 2);
    EXPECT_EQ(runLinx({"send", "peer", "4294967296"}).status, 2);
    EXPECT_EQ(runLinx({"send", "peer", "1", "--file", "/nowhere"}).status, 1);
    expectNothing(peer);
}

TEST_F(SendingTest, WhoIsNotThereIsNotSentTo) {
    Endpoint peer("peer");
    const Outcome expected = {3, "", "linx: no endpoint is called 'nobody': `linx list` shows who is there\n"};
    EXPECT_EQ(expected, runLinx({"send", "nobody", "1"}));
    EXPECT_EQ(expected, runLinx({"call", "nobody", "1", "--reply", "2"}));
    EXPECT_EQ(expected, runLinx({"shutdown", "nobody"}));
}

TEST_F(SendingTest, ASenderWaitsForANameAsLongAsItIsTold) {
    Endpoint peer("peer");
    EXPECT_EQ((Outcome{4, "", "linx: nobody has opened 'late' in time\n"}),
              runLinx({"send", "late", "1", "--timeout", "10ms"}));
    LinxRun run({"send", "late", "1", "--timeout", "60"});
    // It hunts: the name is opened only then.
    while (runLinx({"status", "linx." + std::to_string(run.pid())}).out.find("hunts       late") ==
           std::string::npos) {
    }
    Endpoint late("late");
    expectSignal(late, 1);
    expectDone(run.finish());
}

TEST_F(SendingTest, ACallPrintsTheAnswer) {
    Child server(answerAll);
    server.hear();
    const Outcome outcome =
        runLinx({"call", "server", "2000", "--reply", "2001", "--text", "twelve bytes, or more\t"});
    EXPECT_EQ(outcome.status, 0) << outcome;
    EXPECT_THAT(outcome.out,
                testing::MatchesRegex("2001 from server, 22 bytes, after [0-9.]+ ms\n"
                                      "000000  74 77 65 6c 76 65 20 62 79 74 65 73 2c 20 6f 72  twelve bytes, or\n"
                                      "000010  20 6d 6f 72 65 09                                 more\\.\n"));
    const nlohmann::json json = nlohmann::json::parse(
        runLinx({"call", "server", "2000", "--reply", "2001", "--hex", "00ff", "-j"}).out, nullptr, false);
    EXPECT_EQ(json.size(), 5u);
    EXPECT_EQ(json["from"], "server");
    EXPECT_EQ(json["number"], 2001);
    EXPECT_EQ(json["size"], 2);
    EXPECT_EQ(json["data"], "00ff");
    EXPECT_TRUE(json["milliseconds"].is_number());
}

TEST_F(SendingTest, ACallThatNobodyAnswersEndsInTime) {
    Endpoint peer("peer");
    EXPECT_EQ((Outcome{4, "", "linx: 'peer' has not answered in time\n"}),
              runLinx({"call", "peer", "1", "--reply", "2", "--timeout", "10ms"}));
}

TEST_F(SendingTest, ACallWhoseServerIsKilledEndsAtOnce) {
    Child server([](Line& test) {
        Endpoint endpoint("server");
        test.tell();
        expectSignal(endpoint, question);
        kill(getpid(), SIGKILL);
    });
    server.hear();
    EXPECT_EQ((Outcome{1, "", "linx: 'server' ended before it answered\n"}),
              runLinx({"call", "server", "2000", "--reply", "2001", "--timeout", "60"}));
}

TEST_F(SendingTest, AnAnswerThatWasSentBeforeTheEndIsPrinted) {
    Child server([](Line& test) {
        Endpoint endpoint("server");
        test.tell();
        const Received request = expectSignal(endpoint, question);
        send(endpoint, request.sender, answer);
        kill(getpid(), SIGKILL);
    });
    server.hear();
    EXPECT_EQ(runLinx({"call", "server", "2000", "--reply", "2001", "--timeout", "60"}).status, 0);
}

TEST_F(SendingTest, WaitEndsWhenTheNameIsOpened) {
    Endpoint peer("peer");
    expectDone(runLinx({"wait", "peer"}));
    LinxRun run({"wait", "late"});
    while (runLinx({"status", "linx." + std::to_string(run.pid())}).out.find("hunts       late") ==
           std::string::npos) {
    }
    Endpoint late("late");
    expectDone(run.finish());
    EXPECT_EQ((Outcome{4, "", "linx: nobody has opened 'never' in time\n"}),
              runLinx({"wait", "never", "--timeout", "0.01"}));
}

TEST_F(SendingTest, WaitForAnEndEndsWithIt) {
    Endpoint peer("peer");
    expectDone(runLinx({"wait", "--gone", "nobody"}));
    EXPECT_EQ((Outcome{4, "", "linx: 'peer' has not ended in time\n"}),
              runLinx({"wait", "peer", "--gone", "--timeout", "10ms"}));
    Child server(answerAll);
    server.hear();
    LinxRun run({"wait", "server", "--gone"});
    server.kill9();
    expectDone(run.finish());
}

TEST_F(SendingTest, ShutdownSendsTheRequestAndWaitsForTheEndIfItIsTold) {
    Endpoint peer("peer");
    expectDone(runLinx({"shutdown", "peer"}));
    expectSignal(peer, shutdownRequest);
    EXPECT_EQ((Outcome{4, "", "linx: 'peer' has not ended in time\n"}),
              runLinx({"shutdown", "peer", "--timeout", "10ms"}));
    Child server([](Line& test) {
        Endpoint endpoint("server");
        test.tell();
        expectSignal(endpoint, shutdownRequest);
    });
    server.hear();
    expectDone(runLinx({"shutdown", "server", "--timeout", "60"}));
    EXPECT_EQ(server.exitStatus(), 0);
}

TEST_F(SendingTest, NothingIsLeftOfTheProgram) {
    Endpoint peer("peer");
    runLinx({"send", "peer", "1"});
    runLinx({"call", "peer", "1", "--reply", "2", "--timeout", "1ms"});
    LinxRun killed({"wait", "never"});
    while (runLinx({"list"}).out.find("linx.") == std::string::npos) {
    }
    const std::string name = "linx." + std::to_string(killed.pid());
    kill(killed.pid(), SIGKILL);
    EXPECT_EQ(256 + SIGKILL, killed.finish().status);
    EXPECT_THAT(runLinx({"list"}).out, HasSubstr(name));
    expectDone(runLinx({"wait", "--gone", name}));
    EXPECT_THAT(runLinx({"list"}).out, testing::Not(HasSubstr("linx.")));
    EXPECT_EQ(domain.leftovers().size(), 1u) << "the doorbell of the peer";
}

TEST_F(SendingTest, TheLogMaskOfAProcessIsSetFromItsNextReceiveOn) {
    Child server([](Line& test) {
        Endpoint endpoint("server"), other("other");
        test.tell(spidOf(endpoint));
        for (int orders = 2; orders != 0; --orders) {
            const Received order = expectSignal(endpoint, 1);
            ASSERT_EQ(send(endpoint, order.sender, 2, {LogClient::Instance()->Level()}), 0);
        }
        test.hear();
    });
    const LinxSpid spid = server.hear();
    EXPECT_EQ((Outcome{0, "530\n", ""}), runLinx({"log", "server"}));
    EXPECT_EQ((Outcome{0, "1234\n", ""}), runLinx({"log", "server", "1234"}));
    EXPECT_EQ((Outcome{0, "{\"name\":\"server\",\"level\":1234}\n", ""}), runLinx({"log", "server", "-j"}));
    Endpoint client("client");
    ASSERT_EQ(send(client, spid, 1), 0);
    EXPECT_EQ(expectSignal(client, 2).word(), 1234u);
    EXPECT_EQ((Outcome{0, "1234\n", ""}), runLinx({"log", "other"})) << "the process has one mask";
    EXPECT_EQ((Outcome{0, "530\n", ""}), runLinx({"log", "other", "530"}));
    ASSERT_EQ(send(client, spid, 1), 0);
    EXPECT_EQ(expectSignal(client, 2).word(), 530u) << "whichever of its endpoints receives";
    EXPECT_EQ(runLinx({"log", "nobody", "1"}).status, 3);
    EXPECT_EQ(runLinx({"log", "server", "much"}).status, 2);
    server.tell();
    EXPECT_EQ(server.exitStatus(), 0);
}

}  // namespace
