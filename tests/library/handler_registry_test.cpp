#include <string>

#include "fixture.h"

namespace {

class HandlerRegistryTest : public EndpointTest {
protected:
    HandlerRegistryTest() {
        platform.setName(7, "Peer");
        receive(1);  // so that the peer is known in all that follows
        platform.takeCalls();
    }

    /// Receives a signal of this number, and returns what the handlers noted.
    std::vector<std::string> receive(std::uint32_t number) {
        platform.takeCalls();
        platform.arrive(7, number, "data");
        endpoint.Receive(-1, 0, LinxIpc::emptyString, nullptr);
        std::vector<std::string> notes;
        for (const std::string& call : platform.takeCalls()) {
            if (call.rfind("linx_", 0) != 0 && call.rfind("log ", 0) != 0) notes.push_back(call);
        }
        return notes;
    }
};

TEST_F(HandlerRegistryTest, AHandlerIsCalledForItsNumberOnly) {
    endpoint.RegisterHandler(300, noteMessage, named("a"));
    endpoint.RegisterHandler(301, noteMessage, named("b"));
    EXPECT_THAT(receive(300), ElementsAre("a: 300 from Peer 'data'"));
    EXPECT_THAT(receive(301), ElementsAre("b: 301 from Peer 'data'"));
    EXPECT_THAT(receive(302), IsEmpty());
}

TEST_F(HandlerRegistryTest, HandlersMayBeRegisteredBeforeInit) {
    unopened.RegisterHandler(300, noteMessage, named("a"));
    unopened.RegisterRelayHandler(301, noteRelay, named("r"));
    unopened.RegisterDefault(noteMessage, named("d"));
    unopened.Init();
    platform.arrive(7, 300);
    platform.arrive(7, 301);
    platform.arrive(7, 302);
    platform.takeCalls();
    for (int i = 0; i < 3; ++i) unopened.Receive(-1, 0, LinxIpc::emptyString, nullptr);
    const std::vector<std::string> calls = platform.takeCalls();
    EXPECT_THAT(calls,
                ::testing::IsSupersetOf({"a: 300 from Peer ''", "r: 301 from Peer ''", "d: 302 from Peer ''"}));
}

TEST_F(HandlerRegistryTest, TheSecondRegistrationReplacesTheFirst) {
    endpoint.RegisterHandler(300, noteRelay, named("first"));
    endpoint.RegisterHandler(300, noteMessage, named("second"));
    EXPECT_THAT(receive(300), ElementsAre("second: 300 from Peer 'data'"));
    endpoint.DeregisterHandler(300);
    EXPECT_THAT(receive(300), IsEmpty());
}

TEST_F(HandlerRegistryTest, TheSecondRelayRegistrationReplacesTheFirst) {
    endpoint.RegisterRelayHandler(300, noteMessage, named("first"));
    endpoint.RegisterRelayHandler(300, noteRelay, named("second"));
    EXPECT_THAT(receive(300), ElementsAre("second: 300 from Peer 'data'"));
    endpoint.DeregisterHandler(300);
    EXPECT_THAT(receive(300), IsEmpty());
}

TEST_F(HandlerRegistryTest, ARelayHandlerTakesPrecedenceOverAHandler) {
    endpoint.RegisterHandler(300, noteMessage, named("plain"));
    endpoint.RegisterRelayHandler(300, noteRelay, named("relay"));
    EXPECT_THAT(receive(300), ElementsAre("relay: 300 from Peer 'data'"));
}

TEST_F(HandlerRegistryTest, DeregisteringRemovesBothKinds) {
    endpoint.RegisterHandler(300, noteMessage, named("plain"));
    endpoint.RegisterRelayHandler(300, noteRelay, named("relay"));
    endpoint.RegisterHandler(301, noteMessage, named("other"));
    endpoint.DeregisterHandler(300);
    EXPECT_THAT(receive(300), IsEmpty());
    EXPECT_THAT(receive(301), ElementsAre("other: 301 from Peer 'data'"));
}

TEST_F(HandlerRegistryTest, DeregisteringAnUnknownNumberDoesNothing) {
    endpoint.RegisterHandler(300, noteMessage, named("plain"));
    endpoint.DeregisterHandler(301);
    EXPECT_THAT(receive(300), ElementsAre("plain: 300 from Peer 'data'"));
}

TEST_F(HandlerRegistryTest, TheDefaultHandlerGetsSignalsWithoutAHandler) {
    endpoint.RegisterHandler(300, noteMessage, named("plain"));
    endpoint.RegisterDefault(noteMessage, named("first default"));
    endpoint.RegisterDefault(noteMessage, named("default"));
    EXPECT_THAT(receive(300), ElementsAre("plain: 300 from Peer 'data'"));
    EXPECT_THAT(receive(301), ElementsAre("default: 301 from Peer 'data'"));
    endpoint.DeregisterHandler(300);
    EXPECT_THAT(receive(300), ElementsAre("default: 300 from Peer 'data'"));
    endpoint.DeregisterDefault();
    EXPECT_THAT(receive(300), IsEmpty());
}

TEST_F(HandlerRegistryTest, ANullDefaultHandlerCountsAsNone) {
    endpoint.RegisterDefault(nullptr, named("default"));
    EXPECT_THAT(receive(300), IsEmpty());
}

TEST_F(HandlerRegistryTest, TheShutdownHandlerIsThatOf1280) {
    endpoint.RegisterShutdown(noteMessage, named("shutdown"));
    EXPECT_THAT(receive(1280), ElementsAre("shutdown: 1280 from Peer 'data'"));
    endpoint.RegisterHandler(1280, noteMessage, named("replaced"));
    EXPECT_THAT(receive(1280), ElementsAre("replaced: 1280 from Peer 'data'"));
    endpoint.DeregisterShutdown();
    EXPECT_THAT(receive(1280), IsEmpty());
}

TEST_F(HandlerRegistryTest, DeregisteringShutdownRemovesARelayHandlerToo) {
    endpoint.RegisterRelayHandler(1280, noteRelay, named("relay"));
    EXPECT_THAT(receive(1280), ElementsAre("relay: 1280 from Peer 'data'"));
    endpoint.DeregisterShutdown();
    EXPECT_THAT(receive(1280), IsEmpty());
}

TEST_F(HandlerRegistryTest, TheProcessDiedHandlerIsThatOf1281) {
    endpoint.RegisterProcessDied(noteMessage, named("died"));
    platform.arrive(7, 1281, word(3));
    platform.arrive(7, 300);
    endpoint.Receive(-1, 0, LinxIpc::emptyString, nullptr);
    EXPECT_THAT(platform.takeCalls(), ::testing::Contains("died: 1281 from Peer '" + word(3) + "'"));
    endpoint.DeregisterProcessDied();
    platform.arrive(7, 1281, word(3));
    platform.arrive(7, 300);
    endpoint.Receive(-1, 0, LinxIpc::emptyString, nullptr);
    EXPECT_THAT(platform.takeCalls(), ::testing::Not(::testing::Contains(::testing::HasSubstr("died:"))));
}

TEST_F(HandlerRegistryTest, NumbersAreUnsigned) {
    endpoint.RegisterHandler(0xFFFFFFFF, noteMessage, named("last"));
    endpoint.RegisterHandler(0, noteMessage, named("zero"));
    EXPECT_THAT(receive(0xFFFFFFFF), ElementsAre("last: 4294967295 from Peer 'data'"));
    EXPECT_THAT(receive(0), ElementsAre("zero: 0 from Peer 'data'"));
}

TEST_F(HandlerRegistryTest, AHandlerMayRemoveItself) {
    const auto once = [](LinxIpc* called, void* userData) {
        called->DeregisterHandler(300);
        noteMessage(called, userData);
    };
    endpoint.RegisterHandler(300, once, named("once"));
    EXPECT_THAT(receive(300), ElementsAre("once: 300 from Peer 'data'"));
    EXPECT_THAT(receive(300), IsEmpty());
}

TEST_F(HandlerRegistryTest, ARelayHandlerMayRemoveItself) {
    const auto once = [](LinxIpc* called, void* userData) {
        called->DeregisterHandler(300);
        noteRelay(called, userData);
    };
    endpoint.RegisterRelayHandler(300, once, named("once"));
    EXPECT_THAT(receive(300), ElementsAre("once: 300 from Peer 'data'"));
    EXPECT_THAT(receive(300), IsEmpty());
}

}  // namespace
