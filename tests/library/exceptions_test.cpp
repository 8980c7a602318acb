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
#include "tests/kit/failing_new.h"

namespace {

using linxtest::newThatFails;

/// What the handlers here throw.
struct Refusal {};

void throwFromHandler(LinxIpc*, void*) {
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

int receiveAny(LinxIpc& endpoint, IpcMessage&) {
    return endpoint.Receive(-1, 0, nobody, nullptr);
}

int receiveTimed(LinxIpc& endpoint, IpcMessage& message) {
    return endpoint.Receive(500, 0, "somebody with a long name", &message);
}

int receiveWithWatchdog(LinxIpc& endpoint, IpcMessage&) {
    Watchdog watchdog;
    return endpoint.Receive(watchdog, 500);
}

int request(LinxIpc& endpoint, IpcMessage& message) {
    return endpoint.Request("Peer", message, 400, 500, nullptr);
}

int asyncRequest(LinxIpc& endpoint, IpcMessage& message) {
    return endpoint.AsyncRequest("Peer", message, 400, 500, nullptr);
}

void enlist300(LinxIpc& endpoint) {
    endpoint.RegisterHandler(300, throwFromHandler, nullptr);
}

void enlistShutdown(LinxIpc& endpoint) {
    endpoint.RegisterShutdown(throwFromHandler, nullptr);
}

const Thrower throwers[] = {
    {"HandlerInReceive", 300, enlist300, receiveAny},
    {"HandlerInTimedReceive", 300, enlist300, receiveTimed},
    {"HandlerInReceiveWithWatchdog", 300, enlist300, receiveWithWatchdog},
    {"HandlerInAsyncRequest", 300, enlist300, asyncRequest},
    {"HandlerOfTheReply", 400, [](LinxIpc& e) { e.RegisterHandler(400, throwFromHandler, nullptr); }, asyncRequest},
    {"DefaultHandler", 300, [](LinxIpc& e) { e.RegisterDefault(throwFromHandler, nullptr); }, receiveAny},
    {"ShutdownHandler", 1280, enlistShutdown, receiveAny},
    {"ShutdownHandlerInRequest", 1280, enlistShutdown, request},
    {"ProcessDiedHandler", 1281, [](LinxIpc& e) { e.RegisterProcessDied(throwFromHandler, nullptr); }, receiveAny},
    {"HandlerOfWhatDoesNotEndTheWait", 13264, [](LinxIpc& e) { e.RegisterHandler(13264, throwFromHandler, nullptr); },
     receiveAny},
};

class ThrowerTest : public ReceiveTest, public ::testing::WithParamInterface<Thrower> {};

TEST_P(ThrowerTest, HasItsSignalFreedOnceAndTheNextIsReceived) {
    meetPeers();
    GetParam().enlist(endpoint);
    const std::string signal = platform.arrive(7, GetParam().number, "abcd");
    EXPECT_THROW(GetParam().receive(endpoint, message), Refusal);
    const std::vector<std::string> calls = platform.takeCalls();
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "linx_free_buf(" + signal + ")"), 1);
    EXPECT_THAT(calls, ::testing::Not(::testing::Contains("PetWatchdog")));
    EXPECT_THAT(platform.signalsInHand(), IsEmpty());

    platform.arrive(7, 500, "next");
    EXPECT_EQ(endpoint.Receive(-1, 500, nobody, &message), 0);
    EXPECT_EQ(described(message), "500 from Peer 'next'");
    EXPECT_THAT(platform.signalsInHand(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Library, ThrowerTest, ::testing::ValuesIn(throwers),
                         [](const auto& test) { return test.param.name; });

class ExceptionsTest : public ReceiveTest {
protected:
    ExceptionsTest() { meetPeers(); }
};

TEST_F(ExceptionsTest, AHandlersExceptionPassesThroughTheHandlerThatReceived) {
    endpoint.RegisterHandler(301, throwFromHandler, nullptr);
    endpoint.RegisterHandler(
        300, [](LinxIpc* called, void*) { called->Receive(-1, 0, nobody, nullptr); }, nullptr);
    platform.arrive(7, 300);
    platform.arrive(8, 301);
    EXPECT_THROW(endpoint.Receive(-1, 0, nobody, nullptr), Refusal);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre("linx_receive({0, 0, 0, 0})", "linx_sender(s3)", "linx_receive({0, 0, 0, 0})",
                            "linx_sender(s4)", "linx_free_buf(s4)", "linx_free_buf(s3)"));
}

TEST_F(ExceptionsTest, ARelayHandlersSignalStaysInTheRelayMessageAndIsFreedByTheNext) {
    endpoint.RegisterRelayHandler(300, throwFromHandler, nullptr);
    platform.arrive(7, 300, "abcd");
    EXPECT_THROW(endpoint.Receive(-1, 0, nobody, nullptr), Refusal);
    EXPECT_EQ(platform.describe(endpoint.relayMessage.Sig()), "300 'abcd'");
    platform.takeCalls();

    endpoint.RegisterRelayHandler(300, noteRelay, named("relay"));
    platform.arrive(8, 300, "efgh");
    EXPECT_EQ(endpoint.Receive(-1, 0, nobody, nullptr), 0);
    EXPECT_THAT(platform.takeCalls(), ElementsAre("linx_receive({0, 0, 0, 0})", "linx_sender(s4)",
                                                  "linx_free_buf(s3)", "relay: 300 from Other 'efgh'"));
}

TEST_F(ExceptionsTest, TheHeldSignalIsNotReplacedBeforeTheNewSendersNameIsCopied) {
    platform.setName(9, "a name that does not fit into a string itself");
    platform.arrive(9, 301);
    endpoint.Receive(-1, 0, nobody, &message);
    endpoint.RegisterRelayHandler(300, noteRelay, named("relay"));
    platform.arrive(7, 300, "abcd");
    endpoint.Receive(-1, 0, nobody, nullptr);
    platform.arrive(9, 300, "efgh");
    newThatFails = 1;  // the copy of the name
    EXPECT_THROW(endpoint.Receive(-1, 0, nobody, &message), std::bad_alloc);
    EXPECT_EQ(described(endpoint.relayMessage), "300 from Peer 'abcd'");
}

/// A message whose payload cannot be read.
class Withheld : public IpcMessage {
public:
    char* DataPtr() override { throw Refusal(); }
};

TEST_F(ExceptionsTest, ASignalIsFreedWhenThePayloadForItThrows) {
    Withheld withheld;
    EXPECT_THROW(endpoint.Notify("Peer", withheld, true), Refusal);
    EXPECT_THAT(platform.takeCalls(), ElementsAre("linx_alloc(4, 0) = s3", "linx_free_buf(s3)"));
    EXPECT_EQ(endpoint.Notify("Peer", message, true), 0);
}

/// A message that cannot be received into.
class Full : public IpcMessage {
public:
    int Allocate(unsigned, unsigned, char*) override { throw Refusal(); }
};

TEST_F(ExceptionsTest, ASignalIsFreedWhenTheMessageForItThrows) {
    Full full;
    platform.arrive(7, 300, "abcd");
    EXPECT_THROW(endpoint.Receive(-1, 0, nobody, &full), Refusal);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre("linx_receive({0, 0, 0, 0})", "linx_sender(s3)", "linx_free_buf(s3)"));
}

TEST_F(ExceptionsTest, AFailedSendForgetsTheDestinationEvenWhenItCannotBeLogged) {
    platform.answerHunts("Peer", {17});
    platform.fail("linx_send", {ECONNRESET});
    newThatFails = 1;
    EXPECT_THROW(endpoint.Notify("Peer", message, true), std::bad_alloc);
    platform.takeCalls();
    platform.level = 0;
    EXPECT_EQ(endpoint.Notify("Peer", message, true), 0);
    EXPECT_EQ(platform.takeCalls().front(), "linx_hunt(\"Peer\", null)");
    EXPECT_EQ(platform.sent.back().to, 17u);
}

TEST_F(ExceptionsTest, AFailedRelayForgetsTheDestinationEvenWhenItCannotBeLogged) {
    RelayMessage relay(&endpoint);
    relay.Allocate(300, 4, nullptr);
    platform.answerHunts("Peer", {17});
    platform.fail("linx_send", {ECONNRESET});
    newThatFails = 1;
    EXPECT_THROW(endpoint.Relay(relay, "Peer"), std::bad_alloc);
    EXPECT_EQ(relay.Sig(), nullptr);
    platform.takeCalls();
    platform.level = 0;
    EXPECT_EQ(endpoint.Notify("Peer", message, true), 0);
    EXPECT_EQ(platform.takeCalls().front(), "linx_hunt(\"Peer\", null)");
}

TEST_F(ExceptionsTest, AShutdownThatCannotBeLoggedHasReachedItsHandlerAndIsFreed) {
    platform.arrive(7, 1280);
    endpoint.RegisterShutdown(
        [](LinxIpc*, void*) {
            RecordingPlatform::instance().note("shutdown");
            newThatFails = 1;
        },
        nullptr);
    EXPECT_THROW(endpoint.Receive(-1, 0, nobody, nullptr), std::bad_alloc);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre("linx_receive({0, 0, 0, 0})", "linx_sender(s3)", "shutdown", "linx_free_buf(s3)"));
}

}  // namespace
