#include <algorithm>
#include <cerrno>
#include <string>
#include <vector>

#include "fixture.h"

namespace {

class NotifyTest : public EndpointTest {
protected:
    NotifyTest() { message.Allocate(300, 4, bytes("abcd")); }

    static char* bytes(const char* text) { return const_cast<char*>(text); }

    void knowPeer() {
        platform.answerHunts("Peer", {7});
        endpoint.ResolveDestination("Peer", true);
        platform.takeCalls();
    }

    /// The calls of a hunt for `name` that is answered by the signal `answer`.
    static std::vector<std::string> hunt(const std::string& name, const std::string& answer) {
        return {"log 32 linxIpc:941 LinxIpc::ResolveDestination: calling linx_hunt, destination = " + name,
                "linx_hunt(\"" + name + "\", null)", "linx_receive_w_tmo(100, {1, 251})",
                "linx_sender(" + answer + ")", "linx_free_buf(" + answer + ")"};
    }

    static std::vector<std::string> vainHunt(const std::string& name) {
        return {"log 32 linxIpc:941 LinxIpc::ResolveDestination: calling linx_hunt, destination = " + name,
                "linx_hunt(\"" + name + "\", null)", "linx_receive_w_tmo(100, {1, 251})"};
    }

    /// Several lists of calls, one after the other.
    static std::vector<std::string> joined(std::initializer_list<std::vector<std::string>> stretches) {
        std::vector<std::string> all;
        for (const std::vector<std::string>& stretch : stretches)
            all.insert(all.end(), stretch.begin(), stretch.end());
        return all;
    }

    IpcMessage message;
};

TEST_F(NotifyTest, WithoutInitItIsRefusedAndAlwaysLogged) {
    EXPECT_EQ(unopened.Notify("Peer", message, true), -1);
    EXPECT_EQ(unopened.Notify("Peer", message, false), -1);
    EXPECT_THAT(platform.takeCalls(), ElementsAre("log 2 linxIpc:416 Notify: use of un-initialized object",
                                                  "log 2 linxIpc:416 Notify: use of un-initialized object"));
}

TEST_F(NotifyTest, AKnownPeerIsSentACopyAtOnce) {
    knowPeer();
    EXPECT_EQ(endpoint.Notify("Peer", message, true), 0);
    EXPECT_THAT(platform.takeCalls(), ElementsAre("linx_alloc(8, 300) = s2", "linx_send(s2, 7)"));
    ASSERT_EQ(platform.sent.size(), 1u);
    EXPECT_EQ(platform.sent[0].number, 300u);
    EXPECT_EQ(platform.sent[0].payload, "abcd");
    EXPECT_EQ(described(message), "300 from  'abcd'");
    EXPECT_EQ(platform.logObjects, 1u) << "that of the hunt beforehand";
}

TEST_F(NotifyTest, AnUnknownPeerIsHuntedFirst) {
    platform.answerHunts("Peer", {7});
    EXPECT_EQ(endpoint.Notify("Peer", message, true), 0);
    EXPECT_EQ(platform.takeCalls(), joined({hunt("Peer", "s1"), {"linx_alloc(8, 300) = s2", "linx_send(s2, 7)"}}));
}

TEST_F(NotifyTest, MessagesMayAlternateBetweenDestinations) {
    platform.answerHunts("Peer", {7});
    platform.answerHunts("Pier", {8});
    for (const char* destination : {"Peer", "Pier", "Peer", "Peer", "Absent", "Pier", "Absent"}) {
        endpoint.Notify(destination, message, false);
    }
    std::vector<LinxSpid> spids;
    for (const linx::testing::SentSignal& signal : platform.sent) spids.push_back(signal.to);
    EXPECT_THAT(spids, ElementsAre(7u, 8u, 7u, 7u, 8u));
}

TEST_F(NotifyTest, TheNextMessageGoesToTheSpidLearnedMeanwhile) {
    knowPeer();
    endpoint.Notify("Peer", message, true);
    platform.setName(17, "Peer");
    platform.arrive(17, 300);
    endpoint.Receive(-1, 0, LinxIpc::emptyString, nullptr);
    endpoint.Notify("Peer", message, true);
    EXPECT_EQ(platform.sent.back().to, 17u);
}

TEST_F(NotifyTest, AnEmptyMessageConsistsOfItsNumber) {
    knowPeer();
    IpcMessage empty;
    empty.Allocate(301, 0, nullptr);
    EXPECT_EQ(endpoint.Notify("Peer", empty, true), 0);
    EXPECT_THAT(platform.takeCalls(), ElementsAre("linx_alloc(4, 301) = s2", "linx_send(s2, 7)"));
    EXPECT_EQ(platform.sent[0].number, 301u);
    EXPECT_EQ(platform.sent[0].payload, "");
}

TEST_F(NotifyTest, TheNumberIsWrittenWhateverTheSignalContains) {
    knowPeer();
    platform.allocWritesNumber = false;
    EXPECT_EQ(endpoint.Notify("Peer", message, true), 0);
    EXPECT_EQ(platform.sent.at(0).number, 300u);
}

TEST_F(NotifyTest, ANewMessageGoesOutAsType0) {
    knowPeer();
    IpcMessage fresh;
    EXPECT_EQ(endpoint.Notify("Peer", fresh, true), 0);
    EXPECT_THAT(platform.takeCalls(), ElementsAre("linx_alloc(4, 0) = s2", "linx_send(s2, 7)"));
}

TEST_F(NotifyTest, TheLargestMessageFits) {
    knowPeer();
    message.Allocate(300, 65532, nullptr);
    EXPECT_EQ(endpoint.Notify("Peer", message, true), 0);
    EXPECT_THAT(platform.takeCalls(), ElementsAre("linx_alloc(65536, 300) = s2", "linx_send(s2, 7)"));
}

TEST_F(NotifyTest, ARelayMessageIsCopiedUnderItsMessageType) {
    knowPeer();
    RelayMessage relay(&endpoint);
    relay.Allocate(300, 4, nullptr);
    relay.Fill("wxyz", 4);
    relay.SetType(400);
    platform.takeCalls();
    EXPECT_EQ(endpoint.Notify("Peer", relay, true), 0);
    EXPECT_THAT(platform.takeCalls(), ElementsAre("linx_alloc(8, 300) = s3", "linx_send(s3, 7)"));
    EXPECT_EQ(platform.sent[0].number, 300u);
    EXPECT_EQ(platform.sent[0].payload, "wxyz");
    EXPECT_EQ(platform.describe(relay.Sig()), "400 'wxyz'");
}

TEST_F(NotifyTest, TheReceivedMessageMayBeSentBack) {
    platform.setName(7, "Peer");
    platform.arrive(7, 300, "echo");
    endpoint.Receive(-1, 0, LinxIpc::emptyString, nullptr);
    EXPECT_EQ(endpoint.Notify(endpoint.rxMessage.GetSender(), endpoint.rxMessage, true), 0);
    EXPECT_EQ(platform.sent[0].to, 7u);
    EXPECT_EQ(platform.sent[0].payload, "echo");
}

TEST_F(NotifyTest, AnAbsentPeerIsHuntedOnceAndThenRefused) {
    EXPECT_EQ(endpoint.Notify("Absent", message, true), -1);
    EXPECT_EQ(platform.takeCalls(), joined({vainHunt("Absent"),
                                            {"log 2 linxIpc:973 LinxIpc::ResolveDestination: unresolved",
                                             "log 2 linxIpc:438 Notify: cannot resolve destination Absent"}}));
    EXPECT_EQ(endpoint.Notify("Absent", message, true), -1);
    EXPECT_THAT(platform.takeCalls(), ElementsAre("log 2 linxIpc:449 Notify: cannot resolve destination"));
}

TEST_F(NotifyTest, AnAbsentPeerIsRefusedQuietlyWithoutErrorLines) {
    EXPECT_EQ(endpoint.Notify("Absent", message, false), -1);
    EXPECT_EQ(platform.takeCalls(), vainHunt("Absent"));
    EXPECT_EQ(endpoint.Notify("Absent", message, false), -1);
    EXPECT_THAT(platform.takeCalls(), IsEmpty());
}

TEST_F(NotifyTest, AFailedHuntIsLoggedAndTriedAgainNextTime) {
    platform.answerHunts("Peer", {7});
    platform.fail("linx_hunt", {ENOSPC});
    EXPECT_EQ(endpoint.Notify("Peer", message, true), -1);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre("log 32 linxIpc:941 LinxIpc::ResolveDestination: calling linx_hunt, destination = Peer",
                            "linx_hunt(\"Peer\", null)", "log 2 linxIpc:946 LinxIpc::ResolveDestination: error 28",
                            "log 2 linxIpc:438 Notify: cannot resolve destination Peer"));
    EXPECT_EQ(endpoint.Notify("Peer", message, true), 0);
}

TEST_F(NotifyTest, AFailedAllocationIsAlwaysLoggedAndReturned) {
    knowPeer();
    platform.fail("linx_alloc", {ENOMEM, EMSGSIZE});
    EXPECT_EQ(endpoint.Notify("Peer", message, true), 12);
    EXPECT_EQ(endpoint.Notify("Peer", message, false), 90);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre("linx_alloc(8, 300) = null", "log 2 linxIpc:460 Notify: linx_alloc failed: error 12",
                            "linx_alloc(8, 300) = null", "log 2 linxIpc:460 Notify: linx_alloc failed: error 90"));
    EXPECT_EQ(endpoint.Notify("Peer", message, true), 0);
    EXPECT_THAT(platform.takeCalls(), ElementsAre("linx_alloc(8, 300) = s2", "linx_send(s2, 7)"));
}

TEST_F(NotifyTest, AFailedSendIsRepeatedToTheNewSpid) {
    knowPeer();
    platform.answerHunts("Peer", {17});
    platform.fail("linx_send", {ECONNRESET});
    EXPECT_EQ(endpoint.Notify("Peer", message, true), 0);
    EXPECT_EQ(platform.takeCalls(),
              joined({{"linx_alloc(8, 300) = s2", "linx_send(s2, 7)",
                       "log 4 linxIpc:477 Notify: send failed: error 104 retries left = 31",
                       "log 4 linxIpc:478 Notify: send failed: linx destination endpoint name = Peer",
                       "log 4 linxIpc:479 Notify: send failed: size of linx message = 8"},
                      hunt("Peer", "s3"),
                      {"linx_alloc(8, 300) = s4", "linx_send(s4, 17)",
                       "log 16 linxIpc:500 Notify: send successful after 1 retries"}}));
    ASSERT_EQ(platform.sent.size(), 2u);
    EXPECT_EQ(platform.sent[1].payload, "abcd");

    EXPECT_EQ(endpoint.Notify("Peer", message, true), 0);
    EXPECT_THAT(platform.takeCalls(), ElementsAre("linx_alloc(8, 300) = s5", "linx_send(s5, 17)"));
}

/// A message that grows whenever its payload is asked for.
class Growing : public IpcMessage {
public:
    char* DataPtr() override {
        Allocate(MsgType(), Length() + 4, nullptr);
        return std::fill_n(IpcMessage::DataPtr(), Length(), 'x') - Length();
    }
};

TEST_F(NotifyTest, EveryAttemptHasTheSizeThatTheMessageHadAtFirst) {
    knowPeer();
    platform.level = 4;
    platform.answerHunts("Peer", {17});
    platform.fail("linx_send", {ECONNRESET});
    Growing growing;
    growing.Allocate(300, 4, nullptr);
    EXPECT_EQ(endpoint.Notify("Peer", growing, true), 0);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre("linx_alloc(8, 300) = s2", "linx_send(s2, 7)",
                            "log 4 linxIpc:477 Notify: send failed: error 104 retries left = 31",
                            "log 4 linxIpc:478 Notify: send failed: linx destination endpoint name = Peer",
                            "log 4 linxIpc:479 Notify: send failed: size of linx message = 8",
                            "linx_hunt(\"Peer\", null)", "linx_receive_w_tmo(100, {1, 251})", "linx_sender(s3)",
                            "linx_free_buf(s3)", "linx_alloc(8, 300) = s4", "linx_send(s4, 17)"));
    EXPECT_EQ(platform.sent.back().payload, "xxxx");
}

TEST_F(NotifyTest, WithoutErrorLinesARepeatedSendLogsOnlyItsSuccess) {
    knowPeer();
    platform.answerHunts("Peer", {17});
    platform.fail("linx_send", {ECONNRESET});
    EXPECT_EQ(endpoint.Notify("Peer", message, false), 0);
    EXPECT_EQ(platform.takeCalls(), joined({{"linx_alloc(8, 300) = s2", "linx_send(s2, 7)"},
                                            hunt("Peer", "s3"),
                                            {"linx_alloc(8, 300) = s4", "linx_send(s4, 17)",
                                             "log 16 linxIpc:500 Notify: send successful after 1 retries"}}));
}

TEST_F(NotifyTest, APeerThatIsGoneIsRefusedAfterAnUnansweredHunt) {
    knowPeer();
    platform.answerHunts("Peer", {});
    platform.fail("linx_send", {ECONNRESET});
    EXPECT_EQ(endpoint.Notify("Peer", message, true), -1);
    EXPECT_EQ(platform.takeCalls(),
              joined({{"linx_alloc(8, 300) = s2", "linx_send(s2, 7)",
                       "log 4 linxIpc:477 Notify: send failed: error 104 retries left = 31",
                       "log 4 linxIpc:478 Notify: send failed: linx destination endpoint name = Peer",
                       "log 4 linxIpc:479 Notify: send failed: size of linx message = 8"},
                      vainHunt("Peer"),
                      {"log 2 linxIpc:973 LinxIpc::ResolveDestination: unresolved",
                       "log 2 linxIpc:438 Notify: cannot resolve destination Peer"}}));
    EXPECT_EQ(endpoint.Notify("Peer", message, true), -1);
    EXPECT_THAT(platform.takeCalls(), ElementsAre("log 2 linxIpc:449 Notify: cannot resolve destination"));
}

TEST_F(NotifyTest, AFailedAllocationOnARetryKeepsWhatTheHuntFound) {
    knowPeer();
    platform.answerHunts("Peer", {17});
    platform.fail("linx_send", {ECONNRESET});
    platform.fail("linx_alloc", {0, ENOMEM});
    EXPECT_EQ(endpoint.Notify("Peer", message, false), 12);
    EXPECT_EQ(platform.takeCalls(),
              joined({{"linx_alloc(8, 300) = s2", "linx_send(s2, 7)"},
                      hunt("Peer", "s3"),
                      {"linx_alloc(8, 300) = null", "log 2 linxIpc:460 Notify: linx_alloc failed: error 12"}}));
    EXPECT_EQ(endpoint.Notify("Peer", message, false), 0);
    EXPECT_THAT(platform.takeCalls(), ElementsAre("linx_alloc(8, 300) = s4", "linx_send(s4, 17)"));
}

TEST_F(NotifyTest, ASendThatFails32TimesIsGivenUpWithResultZero) {
    knowPeer();
    platform.failAlways("linx_send", ECONNRESET);
    EXPECT_EQ(endpoint.Notify("Peer", message, true), 0);

    std::vector<std::string> expected;
    unsigned signal = 2;
    for (int left = 31; left > 0; --left) {
        const std::string sent = "s" + std::to_string(signal);
        const std::string answer = "s" + std::to_string(signal + 1);
        const std::vector<std::string> attempt =
            joined({{"linx_alloc(8, 300) = " + sent, "linx_send(" + sent + ", 7)",
                     "log 4 linxIpc:477 Notify: send failed: error 104 retries left = " + std::to_string(left),
                     "log 4 linxIpc:478 Notify: send failed: linx destination endpoint name = Peer",
                     "log 4 linxIpc:479 Notify: send failed: size of linx message = 8"},
                    hunt("Peer", answer)});
        expected.insert(expected.end(), attempt.begin(), attempt.end());
        signal += 2;
    }
    for (const char* call : {"linx_alloc(8, 300) = s64", "linx_send(s64, 7)",
                             "log 2 linxIpc:484 Notify: send failed. No retries remaining: error 104",
                             "log 2 linxIpc:485 Notify: send failed: linx destination endpoint name = Peer",
                             "log 2 linxIpc:486 Notify: send failed: size of linx message = 8"}) {
        expected.push_back(call);
    }
    EXPECT_EQ(platform.takeCalls(), expected);
    EXPECT_EQ(platform.signalsAllocated, 32u);
    EXPECT_EQ(platform.sent.size(), 32u);
    EXPECT_EQ(platform.signalsFreed, 32u) << "hunt signals only: one beforehand, 31 between the attempts";

    platform.failAlways("linx_send", 0);
    EXPECT_EQ(endpoint.Notify("Peer", message, true), 0);
    EXPECT_EQ(platform.takeCalls(), joined({hunt("Peer", "s65"), {"linx_alloc(8, 300) = s66", "linx_send(s66, 7)"}}))
        << "the name was forgotten";
}

TEST_F(NotifyTest, WithoutErrorLinesGivingUpIsSilent) {
    knowPeer();
    platform.failAlways("linx_send", ECONNRESET);
    platform.level = ~32u;
    EXPECT_EQ(endpoint.Notify("Peer", message, false), 0);
    EXPECT_EQ(platform.sent.size(), 32u);
    EXPECT_THAT(platform.takeCalls(), ::testing::Each(::testing::StartsWith("linx_")));
}

TEST_F(NotifyTest, The32ndAttemptMaySucceed) {
    knowPeer();
    for (int i = 0; i < 31; ++i) platform.fail("linx_send", {ECONNRESET});
    EXPECT_EQ(endpoint.Notify("Peer", message, true), 0);
    EXPECT_EQ(platform.takeCalls().back(), "log 16 linxIpc:500 Notify: send successful after 31 retries");
    EXPECT_EQ(platform.sent.size(), 32u);
}

TEST_F(NotifyTest, ASpidOfZeroFromAHuntIsUsedAsItIs) {
    platform.answerHunts("Odd", {0});
    EXPECT_EQ(endpoint.Notify("Odd", message, true), 0);
    EXPECT_EQ(platform.takeCalls().back(), "linx_send(s2, 0)");
    EXPECT_EQ(endpoint.Notify("Odd", message, true), -1);
    EXPECT_THAT(platform.takeCalls(), ElementsAre("log 2 linxIpc:449 Notify: cannot resolve destination"));
}

}  // namespace
