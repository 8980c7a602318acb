// Exceptions that the user's own code and the log throw pass through the library. The signal at hand is freed, and
// the endpoint remains usable.
#include <algorithm>
#include <cerrno>
#include <functional>
#include <new>
#include <ostream>
#include <string>
#include <vector>

#include "platform/Watchdog.h"
#include "receive_fixture.h"
#include "tests/support/failing_new.h"

namespace {

using linxtest::newThatFails;

/// What the handlers here throw.
struct Refusal {};

void Throw(LinxIpc*, void*) {
    throw Refusal();
}

/// A handler that throws, and the call that runs it.
struct Thrower {
    const char* name;
    std::uint32_t number;
    std::function<void(LinxIpc&)> enlist;
    std::function<int(LinxIpc&, IpcMessage&)> receive;
};

std::ostream& operator<<(std::ostream& stream, const Thrower& thrower) {
    return stream << thrower.name;
}

int ReceiveAny(LinxIpc& endpoint, IpcMessage&) {
    return endpoint.Receive(-1, 0, nobody, nullptr);
}

int ReceiveTimed(LinxIpc& endpoint, IpcMessage& message) {
    return endpoint.Receive(500, 0, "somebody with a long name", &message);
}

int ReceiveWithWatchdog(LinxIpc& endpoint, IpcMessage&) {
    Watchdog watchdog;
    return endpoint.Receive(watchdog, 500);
}

int Request(LinxIpc& endpoint, IpcMessage& message) {
    return endpoint.Request("Peer", message, 400, 500, nullptr);
}

int AsyncRequest(LinxIpc& endpoint, IpcMessage& message) {
    return endpoint.AsyncRequest("Peer", message, 400, 500, nullptr);
}

void Enlist300(LinxIpc& endpoint) {
    endpoint.RegisterHandler(300, Throw, nullptr);
}

void EnlistShutdown(LinxIpc& endpoint) {
    endpoint.RegisterShutdown(Throw, nullptr);
}

const Thrower throwers[] = {
    {"HandlerInReceive", 300, Enlist300, ReceiveAny},
    {"HandlerInTimedReceive", 300, Enlist300, ReceiveTimed},
    {"HandlerInReceiveWithWatchdog", 300, Enlist300, ReceiveWithWatchdog},
    {"HandlerInAsyncRequest", 300, Enlist300, AsyncRequest},
    {"HandlerOfTheReply", 400, [](LinxIpc& e) { e.RegisterHandler(400, Throw, nullptr); }, AsyncRequest},
    {"DefaultHandler", 300, [](LinxIpc& e) { e.RegisterDefault(Throw, nullptr); }, ReceiveAny},
    {"ShutdownHandler", 1280, EnlistShutdown, ReceiveAny},
    {"ShutdownHandlerInRequest", 1280, EnlistShutdown, Request},
    {"ProcessDiedHandler", 1281, [](LinxIpc& e) { e.RegisterProcessDied(Throw, nullptr); }, ReceiveAny},
    {"HandlerOfWhatDoesNotEndTheWait", 13264, [](LinxIpc& e) { e.RegisterHandler(13264, Throw, nullptr); },
     ReceiveAny},
};

class ThrowerTest : public ReceiveTest, public ::testing::WithParamInterface<Thrower> {};

TEST_P(ThrowerTest, HasItsSignalFreedOnceAndTheNextIsReceived) {
    MeetPeers();
    GetParam().enlist(endpoint);
    const std::string signal = platform.Arrive(7, GetParam().number, "abcd");
    EXPECT_THROW(GetParam().receive(endpoint, message), Refusal);
    const std::vector<std::string> calls = platform.Calls();
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "linx_free_buf(" + signal + ")"), 1);
    EXPECT_THAT(calls, ::testing::Not(::testing::Contains("PetWatchdog")));
    EXPECT_THAT(platform.SignalsInHand(), IsEmpty());

    platform.Arrive(7, 500, "next");
    EXPECT_EQ(endpoint.Receive(-1, 500, nobody, &message), 0);
    EXPECT_EQ(Described(message), "500 from Peer 'next'");
    EXPECT_THAT(platform.SignalsInHand(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Library, ThrowerTest, ::testing::ValuesIn(throwers),
                         [](const auto& test) { return test.param.name; });

class ExceptionsTest : public ReceiveTest {
protected:
    ExceptionsTest() { MeetPeers(); }
};

TEST_F(ExceptionsTest, AHandlersExceptionPassesThroughTheHandlerThatReceived) {
    endpoint.RegisterHandler(301, Throw, nullptr);
    endpoint.RegisterHandler(
        300, [](LinxIpc* called, void*) { called->Receive(-1, 0, nobody, nullptr); }, nullptr);
    platform.Arrive(7, 300);
    platform.Arrive(8, 301);
    EXPECT_THROW(endpoint.Receive(-1, 0, nobody, nullptr), Refusal);
    EXPECT_THAT(platform.Calls(),
                ElementsAre("linx_receive({0, 0, 0, 0})", "linx_sender(s3)", "linx_receive({0, 0, 0, 0})",
                            "linx_sender(s4)", "linx_free_buf(s4)", "linx_free_buf(s3)"));
}

TEST_F(ExceptionsTest, ARelayHandlersSignalStaysInTheRelayMessageAndIsFreedByTheNext) {
    endpoint.RegisterRelayHandler(300, Throw, nullptr);
    platform.Arrive(7, 300, "abcd");
    EXPECT_THROW(endpoint.Receive(-1, 0, nobody, nullptr), Refusal);
    EXPECT_EQ(platform.Content(endpoint.relayMessage.Sig()), "300 'abcd'");
    platform.Calls();

    endpoint.RegisterRelayHandler(300, NoteRelay, Named("relay"));
    platform.Arrive(8, 300, "efgh");
    EXPECT_EQ(endpoint.Receive(-1, 0, nobody, nullptr), 0);
    EXPECT_THAT(platform.Calls(), ElementsAre("linx_receive({0, 0, 0, 0})", "linx_sender(s4)", "linx_free_buf(s3)",
                                              "relay: 300 from Other 'efgh'"));
}

TEST_F(ExceptionsTest, TheHeldSignalIsNotReplacedBeforeTheNewSendersNameIsCopied) {
    platform.Knows(9, "a name that does not fit into a string itself");
    platform.Arrive(9, 301);
    endpoint.Receive(-1, 0, nobody, &message);
    endpoint.RegisterRelayHandler(300, NoteRelay, Named("relay"));
    platform.Arrive(7, 300, "abcd");
    endpoint.Receive(-1, 0, nobody, nullptr);
    platform.Arrive(9, 300, "efgh");
    newThatFails = 1;  // the copy of the name
    EXPECT_THROW(endpoint.Receive(-1, 0, nobody, &message), std::bad_alloc);
    EXPECT_EQ(Described(endpoint.relayMessage), "300 from Peer 'abcd'");
}

/// A message whose payload cannot be read.
class Withheld : public IpcMessage {
public:
    char* DataPtr() override { throw Refusal(); }
};

TEST_F(ExceptionsTest, ASignalIsFreedWhenThePayloadForItThrows) {
    Withheld withheld;
    EXPECT_THROW(endpoint.Notify("Peer", withheld, true), Refusal);
    EXPECT_THAT(platform.Calls(), ElementsAre("linx_alloc(4, 0) = s3", "linx_free_buf(s3)"));
    EXPECT_EQ(endpoint.Notify("Peer", message, true), 0);
}

/// A message that cannot be received into.
class Full : public IpcMessage {
public:
    int Allocate(unsigned, unsigned, char*) override { throw Refusal(); }
};

TEST_F(ExceptionsTest, ASignalIsFreedWhenTheMessageForItThrows) {
    Full full;
    platform.Arrive(7, 300, "abcd");
    EXPECT_THROW(endpoint.Receive(-1, 0, nobody, &full), Refusal);
    EXPECT_THAT(platform.Calls(), ElementsAre("linx_receive({0, 0, 0, 0})", "linx_sender(s3)", "linx_free_buf(s3)"));
}

TEST_F(ExceptionsTest, AFailedSendForgetsTheDestinationEvenWhenItCannotBeLogged) {
    platform.Answers("Peer", {17});
    platform.Fail("linx_send", {ECONNRESET});
    newThatFails = 1;
    EXPECT_THROW(endpoint.Notify("Peer", message, true), std::bad_alloc);
    platform.Calls();
    platform.level = 0;
    EXPECT_EQ(endpoint.Notify("Peer", message, true), 0);
    EXPECT_EQ(platform.Calls().front(), "linx_hunt(\"Peer\", null)");
    EXPECT_EQ(platform.sent.back().to, 17u);
}

TEST_F(ExceptionsTest, AFailedRelayForgetsTheDestinationEvenWhenItCannotBeLogged) {
    RelayMessage relay(&endpoint);
    relay.Allocate(300, 4, nullptr);
    platform.Answers("Peer", {17});
    platform.Fail("linx_send", {ECONNRESET});
    newThatFails = 1;
    EXPECT_THROW(endpoint.Relay(relay, "Peer"), std::bad_alloc);
    EXPECT_EQ(relay.Sig(), nullptr);
    platform.Calls();
    platform.level = 0;
    EXPECT_EQ(endpoint.Notify("Peer", message, true), 0);
    EXPECT_EQ(platform.Calls().front(), "linx_hunt(\"Peer\", null)");
}

TEST_F(ExceptionsTest, AShutdownThatCannotBeLoggedHasReachedItsHandlerAndIsFreed) {
    platform.Arrive(7, 1280);
    endpoint.RegisterShutdown(
        [](LinxIpc*, void*) {
            recording::Platform::Instance().Note("shutdown");
            newThatFails = 1;
        },
        nullptr);
    EXPECT_THROW(endpoint.Receive(-1, 0, nobody, nullptr), std::bad_alloc);
    EXPECT_THAT(platform.Calls(),
                ElementsAre("linx_receive({0, 0, 0, 0})", "linx_sender(s3)", "shutdown", "linx_free_buf(s3)"));
}

}  // namespace
