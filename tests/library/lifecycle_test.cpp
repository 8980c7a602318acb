#include <cerrno>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <type_traits>

#include "fixture.h"

namespace {

static_assert(!std::is_copy_constructible_v<LinxIpc> && !std::is_copy_assignable_v<LinxIpc>);
static_assert(!std::is_copy_constructible_v<IpcMessage> && !std::is_copy_constructible_v<RelayMessage>);
static_assert(std::is_base_of_v<FileDescriptor, LinxIpc> && std::is_base_of_v<IpcMessage, RelayMessage>);

class LifecycleTest : public LibraryTest {
protected:
    std::optional<LinxIpc> endpoint{"Self"};
};

TEST_F(LifecycleTest, AConstructedEndpointHasOpenedNothing) {
    EXPECT_EQ(endpoint->Linx(), nullptr);
    EXPECT_EQ(endpoint->Descriptor(), -1);
    EXPECT_EQ(endpoint->relayMessage.Endpoint(), &*endpoint);
    EXPECT_EQ(described(endpoint->rxMessage), "0 from  ''");
    endpoint.reset();
    EXPECT_THAT(platform.takeCalls(), IsEmpty());
}

TEST_F(LifecycleTest, InitOpensTheEndpointUnderItsName) {
    EXPECT_EQ(endpoint->Init(), 0);
    EXPECT_THAT(platform.takeCalls(), ElementsAre("linx_open(\"Self\", 0, null)", "linx_get_descriptor"));
    EXPECT_NE(endpoint->Linx(), nullptr);
    EXPECT_EQ(endpoint->Descriptor(), 4711);
}

TEST_F(LifecycleTest, BothConstructorsTakeTheName) {
    std::string name = "FromString";
    LinxIpc other(name);
    name = "changed";
    other.Init();
    EXPECT_THAT(platform.takeCalls(), ElementsAre("linx_open(\"FromString\", 0, null)", "linx_get_descriptor"));
}

TEST_F(LifecycleTest, ANullNameThrowsAndLeavesNothingBehind) {
    const char* const null = nullptr;
    EXPECT_THROW(LinxIpc{null}, std::logic_error);
    EXPECT_THAT(platform.takeCalls(), IsEmpty());
}

TEST_F(LifecycleTest, TheDestructorClosesTheHandleAndThenTheDescriptor) {
    endpoint->Init();
    platform.takeCalls();
    endpoint.reset();
    EXPECT_THAT(platform.takeCalls(), ElementsAre("linx_close", "close(4711)"));
}

TEST_F(LifecycleTest, DescriptorZeroIsClosedLikeAnyOther) {
    exposeDescriptor(0);
    endpoint->Init();
    EXPECT_EQ(endpoint->Descriptor(), 0);
    platform.takeCalls();
    endpoint.reset();
    EXPECT_THAT(platform.takeCalls(), ElementsAre("linx_close", "close(0)"));
}

TEST_F(LifecycleTest, WithoutADescriptorOnlyTheHandleIsClosed) {
    exposeDescriptor(-1);
    EXPECT_EQ(endpoint->Init(), 0);
    platform.takeCalls();
    endpoint.reset();
    EXPECT_THAT(platform.takeCalls(), ElementsAre("linx_close"));
}

TEST_F(LifecycleTest, ASecondInitIsRefusedAndChangesNothing) {
    endpoint->Init();
    LINX* const handle = endpoint->Linx();
    exposeDescriptor(4712);
    platform.takeCalls();
    EXPECT_EQ(endpoint->Init(), -1);
    EXPECT_THAT(platform.takeCalls(), ElementsAre("log 2 linxIpc:334 LinxIpc::Init Linx Already initialized"));
    EXPECT_EQ(endpoint->Linx(), handle);
    EXPECT_EQ(endpoint->Descriptor(), 4711);
}

TEST_F(LifecycleTest, AFailedOpenIsLoggedAndReturnedAndMayBeTriedAgain) {
    platform.fail("linx_open", {EADDRINUSE});
    EXPECT_EQ(endpoint->Init(), 98);
    EXPECT_THAT(platform.takeCalls(), ElementsAre("linx_open(\"Self\", 0, null)",
                                                  "log 2 linxIpc:342 LinxIpc::Init open failed for: Self, errno 98"));
    EXPECT_EQ(endpoint->Linx(), nullptr);
    EXPECT_EQ(endpoint->Descriptor(), -1);

    EXPECT_EQ(endpoint->Init(), 0);
    EXPECT_THAT(platform.takeCalls(), ElementsAre("linx_open(\"Self\", 0, null)", "linx_get_descriptor"));
}

TEST_F(LifecycleTest, DestructionAfterAFailedOpenClosesNothing) {
    platform.fail("linx_open", {EADDRINUSE});
    endpoint->Init();
    platform.takeCalls();
    endpoint.reset();
    EXPECT_THAT(platform.takeCalls(), IsEmpty());
}

TEST_F(LifecycleTest, ASignalStillHeldForRelayIsLeftToTheClosingOfTheHandle) {
    endpoint->Init();
    endpoint->relayMessage.Allocate(300, 4, nullptr);
    platform.takeCalls();
    endpoint.reset();
    EXPECT_THAT(platform.takeCalls(), ElementsAre("linx_close", "close(4711)"));
}

TEST_F(LifecycleTest, TheReceivedMessageIsFreedWithTheEndpoint) {
    endpoint->rxMessage.Allocate(300, 100, nullptr);
    EXPECT_EQ(interposed::liveArrays(), 1u);
    endpoint.reset();
    EXPECT_EQ(interposed::liveArrays(), 0u);
}

TEST_F(LifecycleTest, DestructionThroughTheBaseIsComplete) {
    std::unique_ptr<FileDescriptor> base = std::make_unique<LinxIpc>("Other");
    static_cast<LinxIpc*>(base.get())->Init();
    platform.takeCalls();
    base.reset();
    EXPECT_THAT(platform.takeCalls(), ElementsAre("linx_close", "close(4711)"));
}

TEST_F(LifecycleTest, OperationsOnPlainDescriptorsAreRefused) {
    FileDescriptor& descriptor = *endpoint;
    char bytes[4] = "abc";
    unsigned count = 77;
    EXPECT_EQ(descriptor.Send(bytes, sizeof bytes, count), 1);
    EXPECT_EQ(descriptor.Receive(bytes, sizeof bytes, count), 1);
    EXPECT_EQ(descriptor.Blocking(true), 1);
    EXPECT_EQ(descriptor.Blocking(false), 1);
    EXPECT_EQ(count, 77u);
    EXPECT_STREQ(bytes, "abc");
    EXPECT_THAT(platform.takeCalls(), ElementsAre("log 2 linxIpc:1103 LinxIpc::Send: method not supported",
                                                  "log 2 linxIpc:1111 LinxIpc::Receive: method not supported",
                                                  "log 2 linxIpc:1117 LinxIpc::Blocking: method not supported",
                                                  "log 2 linxIpc:1117 LinxIpc::Blocking: method not supported"));
}

TEST_F(LifecycleTest, TheEmptyStringIsEmpty) {
    EXPECT_EQ(LinxIpc::emptyString, "");
}

class CommonInitTest : public EndpointTest {};

TEST_F(CommonInitTest, TakesTheNameAndDropsTheHandleWithoutClosingIt) {
    endpoint.CommonInit("Renamed");
    EXPECT_THAT(platform.takeCalls(), IsEmpty());
    EXPECT_EQ(endpoint.Linx(), nullptr);
    EXPECT_EQ(endpoint.Descriptor(), 4711);
    EXPECT_EQ(endpoint.Init(), 0);
    EXPECT_THAT(platform.takeCalls(), ElementsAre("linx_open(\"Renamed\", 0, null)", "[Renamed]linx_get_descriptor"));
}

TEST_F(CommonInitTest, ForgetsHuntsHandlersAndTheDefaultHandler) {
    platform.answerHunts("Peer", {7});
    endpoint.ResolveDestination("Peer", true);
    endpoint.ResolveDestination("Absent", false);
    endpoint.Attach("Peer", 499);
    endpoint.RegisterHandler(300, noteMessage, named("handler"));
    endpoint.RegisterDefault(noteMessage, named("default"));
    endpoint.CommonInit("Self");
    endpoint.Init();
    platform.level = 0;
    platform.takeCalls();

    platform.setName(8, "Sender");
    platform.arrive(8, 300);
    endpoint.Receive(-1, 0, LinxIpc::emptyString, nullptr);
    endpoint.Attach("Peer", 500);
    endpoint.ResolveDestination("Absent", false);
    EXPECT_THAT(
        platform.takeCalls(),
        ElementsAre("[Self]linx_receive({0, 0, 0, 0})", "[Self]linx_sender(s3)", "[Self]linx_get_name(8)",
                    "[Self]linx_free_name(\"Sender\")", "[Self]linx_free_buf(s3)", "[Self]linx_hunt(\"Peer\", null)",
                    "[Self]linx_receive_w_tmo(100, {1, 251})", "[Self]linx_sender(s4)", "[Self]linx_free_buf(s4)",
                    "[Self]linx_alloc(4, 500) = s5", "[Self]linx_attach(s5, 7)", "[Self]linx_hunt(\"Absent\", null)",
                    "[Self]linx_receive_w_tmo(100, {1, 251})"));
}

TEST_F(CommonInitTest, KeepsSenderNamesRelayHandlersAndTheTimer) {
    endpoint.EnableTimer(100, 0);
    endpoint.RegisterRelayHandler(300, noteRelay, named("relay"));
    platform.setName(8, "Sender");
    platform.arrive(8, 400);
    endpoint.Receive(-1, 0, LinxIpc::emptyString, nullptr);
    endpoint.CommonInit("Self");
    endpoint.Init();
    platform.takeCalls();

    platform.arrive(8, 300, "abcd");
    endpoint.Receive(-1, 0, LinxIpc::emptyString, nullptr);
    endpoint.DisableTimer();
    EXPECT_THAT(platform.takeCalls(), ElementsAre("[Self]linx_receive({0, 0, 0, 0})", "[Self]linx_sender(s3)",
                                                  "relay: 300 from Sender 'abcd'", "[Self]linx_cancel_tmo(501)"));
}

}  // namespace
