#include <string>

#include "fixture.h"

namespace {

class HandlerRegistryTest : public EndpointTest {
protected:
    HandlerRegistryTest() {
        platform.Knows(7, "Peer");
        Receive(1);  // so that the peer is known in all that follows
        platform.Calls();
    }

    /// Receives a signal of this number, and returns what the handlers noted.
    std::vector<std::string> Receive(std::uint32_t number) {
        platform.Calls();
        platform.Arrive(7, number, "data");
        endpoint.Receive(-1, 0, LinxIpc::emptyString, nullptr);
        std::vector<std::string> notes;
        for (const std::string& call : platform.Calls()) {
            if (call.rfind("linx_", 0) != 0 && call.rfind("log ", 0) != 0) notes.push_back(call);
        }
        return notes;
    }
};

TEST_F(HandlerRegistryTest, AHandlerIsCalledForItsNumberOnly) {
    endpoint.RegisterHandler(300, NoteMessage, Named("a"));
    endpoint.RegisterHandler(301, NoteMessage, Named("b"));
    EXPECT_THAT(Receive(300), ElementsAre("a: 300 from Peer 'data'"));
    EXPECT_THAT(Receive(301), ElementsAre("b: 301 from Peer 'data'"));
    EXPECT_THAT(Receive(302), IsEmpty());
}

TEST_F(HandlerRegistryTest, HandlersMayBeRegisteredBeforeInit) {
    unopened.RegisterHandler(300, NoteMessage, Named("a"));
    unopened.RegisterRelayHandler(301, NoteRelay, Named("r"));
    unopened.RegisterDefault(NoteMessage, Named("d"));
    unopened.Init();
    platform.Arrive(7, 300);
    platform.Arrive(7, 301);
    platform.Arrive(7, 302);
    platform.Calls();
    for (int i = 0; i < 3; ++i) unopened.Receive(-1, 0, LinxIpc::emptyString, nullptr);
    const std::vector<std::string> calls = platform.Calls();
    EXPECT_THAT(calls,
                ::testing::IsSupersetOf({"a: 300 from Peer ''", "r: 301 from Peer ''", "d: 302 from Peer ''"}));
}

TEST_F(HandlerRegistryTest, TheSecondRegistrationReplacesTheFirst) {
    endpoint.RegisterHandler(300, NoteRelay, Named("first"));
    endpoint.RegisterHandler(300, NoteMessage, Named("second"));
    EXPECT_THAT(Receive(300), ElementsAre("second: 300 from Peer 'data'"));
    endpoint.DeregisterHandler(300);
    EXPECT_THAT(Receive(300), IsEmpty());
}

TEST_F(HandlerRegistryTest, TheSecondRelayRegistrationReplacesTheFirst) {
    endpoint.RegisterRelayHandler(300, NoteMessage, Named("first"));
    endpoint.RegisterRelayHandler(300, NoteRelay, Named("second"));
    EXPECT_THAT(Receive(300), ElementsAre("second: 300 from Peer 'data'"));
    endpoint.DeregisterHandler(300);
    EXPECT_THAT(Receive(300), IsEmpty());
}

TEST_F(HandlerRegistryTest, ARelayHandlerTakesPrecedenceOverAHandler) {
    endpoint.RegisterHandler(300, NoteMessage, Named("plain"));
    endpoint.RegisterRelayHandler(300, NoteRelay, Named("relay"));
    EXPECT_THAT(Receive(300), ElementsAre("relay: 300 from Peer 'data'"));
}

TEST_F(HandlerRegistryTest, DeregisteringRemovesBothKinds) {
    endpoint.RegisterHandler(300, NoteMessage, Named("plain"));
    endpoint.RegisterRelayHandler(300, NoteRelay, Named("relay"));
    endpoint.RegisterHandler(301, NoteMessage, Named("other"));
    endpoint.DeregisterHandler(300);
    EXPECT_THAT(Receive(300), IsEmpty());
    EXPECT_THAT(Receive(301), ElementsAre("other: 301 from Peer 'data'"));
}

TEST_F(HandlerRegistryTest, DeregisteringAnUnknownNumberDoesNothing) {
    endpoint.RegisterHandler(300, NoteMessage, Named("plain"));
    endpoint.DeregisterHandler(301);
    EXPECT_THAT(Receive(300), ElementsAre("plain: 300 from Peer 'data'"));
}

TEST_F(HandlerRegistryTest, TheDefaultHandlerGetsSignalsWithoutAHandler) {
    endpoint.RegisterHandler(300, NoteMessage, Named("plain"));
    endpoint.RegisterDefault(NoteMessage, Named("first default"));
    endpoint.RegisterDefault(NoteMessage, Named("default"));
    EXPECT_THAT(Receive(300), ElementsAre("plain: 300 from Peer 'data'"));
    EXPECT_THAT(Receive(301), ElementsAre("default: 301 from Peer 'data'"));
    endpoint.DeregisterHandler(300);
    EXPECT_THAT(Receive(300), ElementsAre("default: 300 from Peer 'data'"));
    endpoint.DeregisterDefault();
    EXPECT_THAT(Receive(300), IsEmpty());
}

TEST_F(HandlerRegistryTest, ANullDefaultHandlerCountsAsNone) {
    endpoint.RegisterDefault(nullptr, Named("default"));
    EXPECT_THAT(Receive(300), IsEmpty());
}

TEST_F(HandlerRegistryTest, TheShutdownHandlerIsThatOf1280) {
    endpoint.RegisterShutdown(NoteMessage, Named("shutdown"));
    EXPECT_THAT(Receive(1280), ElementsAre("shutdown: 1280 from Peer 'data'"));
    endpoint.RegisterHandler(1280, NoteMessage, Named("replaced"));
    EXPECT_THAT(Receive(1280), ElementsAre("replaced: 1280 from Peer 'data'"));
    endpoint.DeregisterShutdown();
    EXPECT_THAT(Receive(1280), IsEmpty());
}

TEST_F(HandlerRegistryTest, DeregisteringShutdownRemovesARelayHandlerToo) {
    endpoint.RegisterRelayHandler(1280, NoteRelay, Named("relay"));
    EXPECT_THAT(Receive(1280), ElementsAre("relay: 1280 from Peer 'data'"));
    endpoint.DeregisterShutdown();
    EXPECT_THAT(Receive(1280), IsEmpty());
}

TEST_F(HandlerRegistryTest, TheProcessDiedHandlerIsThatOf1281) {
    endpoint.RegisterProcessDied(NoteMessage, Named("died"));
    platform.Arrive(7, 1281, Word(3));
    platform.Arrive(7, 300);
    endpoint.Receive(-1, 0, LinxIpc::emptyString, nullptr);
    EXPECT_THAT(platform.Calls(), ::testing::Contains("died: 1281 from Peer '" + Word(3) + "'"));
    endpoint.DeregisterProcessDied();
    platform.Arrive(7, 1281, Word(3));
    platform.Arrive(7, 300);
    endpoint.Receive(-1, 0, LinxIpc::emptyString, nullptr);
    EXPECT_THAT(platform.Calls(), ::testing::Not(::testing::Contains(::testing::HasSubstr("died:"))));
}

TEST_F(HandlerRegistryTest, NumbersAreUnsigned) {
    endpoint.RegisterHandler(0xFFFFFFFF, NoteMessage, Named("last"));
    endpoint.RegisterHandler(0, NoteMessage, Named("zero"));
    EXPECT_THAT(Receive(0xFFFFFFFF), ElementsAre("last: 4294967295 from Peer 'data'"));
    EXPECT_THAT(Receive(0), ElementsAre("zero: 0 from Peer 'data'"));
}

TEST_F(HandlerRegistryTest, AHandlerMayRemoveItself) {
    const auto once = [](LinxIpc* called, void* userData) {
        called->DeregisterHandler(300);
        NoteMessage(called, userData);
    };
    endpoint.RegisterHandler(300, once, Named("once"));
    EXPECT_THAT(Receive(300), ElementsAre("once: 300 from Peer 'data'"));
    EXPECT_THAT(Receive(300), IsEmpty());
}

TEST_F(HandlerRegistryTest, ARelayHandlerMayRemoveItself) {
    const auto once = [](LinxIpc* called, void* userData) {
        called->DeregisterHandler(300);
        NoteRelay(called, userData);
    };
    endpoint.RegisterRelayHandler(300, once, Named("once"));
    EXPECT_THAT(Receive(300), ElementsAre("once: 300 from Peer 'data'"));
    EXPECT_THAT(Receive(300), IsEmpty());
}

}  // namespace
