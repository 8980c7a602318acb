#include <cerrno>
#include <memory>
#include <string>

#include "fixture.h"

namespace {

class RelayMessageTest : public EndpointTest {
protected:
    static char* bytes(LinxSignal* signal) { return reinterpret_cast<char*>(signal); }

    RelayMessage message{&endpoint};
};

TEST_F(RelayMessageTest, ANewMessageHoldsNoSignal) {
    EXPECT_EQ(message.Sig(), nullptr);
    EXPECT_EQ(message.DataPtr(), nullptr);
    EXPECT_EQ(message.Length(), 0u);
    EXPECT_EQ(message.MsgType(), 0u);
    EXPECT_EQ(message.GetSender(), "");
    EXPECT_EQ(message.Endpoint(), &endpoint);
    EXPECT_THAT(platform.takeCalls(), IsEmpty());
}

TEST_F(RelayMessageTest, AllocateWithoutABufferAsksForASignalFourBytesLarger) {
    EXPECT_EQ(message.Allocate(300, 8, nullptr), 0);
    EXPECT_THAT(platform.takeCalls(), ElementsAre("linx_alloc(12, 300) = s1"));
    EXPECT_EQ(message.DataPtr(), bytes(message.Sig()) + 4);
    EXPECT_EQ(message.Length(), 8u);
    EXPECT_EQ(message.MsgType(), 300u);
}

TEST_F(RelayMessageTest, AllocateAdoptsABufferAsItIs) {
    LinxSignal* received = platform.makeSignal(300, "abcd");
    EXPECT_EQ(message.Allocate(299, 4, bytes(received)), 0);
    EXPECT_THAT(platform.takeCalls(), IsEmpty());
    EXPECT_EQ(message.Sig(), received);
    EXPECT_EQ(message.DataPtr(), bytes(received) + 4);
    EXPECT_EQ(message.MsgType(), 299u);
    EXPECT_EQ(message.Length(), 4u);
    EXPECT_EQ(platform.describe(received), "300 'abcd'");
}

TEST_F(RelayMessageTest, AllocateFreesTheHeldSignalFirst) {
    message.Allocate(300, 8, nullptr);
    message.Allocate(301, 4, nullptr);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre("linx_alloc(12, 300) = s1", "linx_free_buf(s1)", "linx_alloc(8, 301) = s2"));
    EXPECT_EQ(message.Length(), 4u);
}

TEST_F(RelayMessageTest, AdoptingFreesTheHeldSignalFirst) {
    message.Allocate(300, 8, nullptr);
    LinxSignal* received = platform.makeSignal(301, "abcd");
    message.Allocate(301, 4, bytes(received));
    EXPECT_THAT(platform.takeCalls(), ElementsAre("linx_alloc(12, 300) = s1", "linx_free_buf(s1)"));
    EXPECT_EQ(message.Sig(), received);
}

TEST_F(RelayMessageTest, AllocatingSizeZeroForgetsTheHeldSignalWithoutFreeingIt) {
    message.Allocate(300, 8, nullptr);
    EXPECT_EQ(message.Allocate(301, 0, nullptr), 0);
    EXPECT_THAT(platform.takeCalls(), ElementsAre("linx_alloc(12, 300) = s1", "linx_alloc(4, 301) = s2"));
    EXPECT_EQ(message.Length(), 0u);
    EXPECT_EQ(message.MsgType(), 301u);
    EXPECT_EQ(platform.describe(message.Sig()), "301 ''");
    EXPECT_EQ(platform.signalsInHand(), (std::set<std::string>{"s1", "s2"}));
}

TEST_F(RelayMessageTest, AdoptingAnEmptySignalForgetsTheHeldOneWithoutFreeingIt) {
    message.Allocate(300, 8, nullptr);
    LinxSignal* received = platform.makeSignal(301, "");
    EXPECT_EQ(message.Allocate(301, 0, bytes(received)), 0);
    EXPECT_THAT(platform.takeCalls(), ElementsAre("linx_alloc(12, 300) = s1"));
    EXPECT_EQ(message.Sig(), received);
    EXPECT_EQ(platform.signalsInHand(), (std::set<std::string>{"s1", "s2"}));
}

TEST_F(RelayMessageTest, AFailedAllocationReturns1AndKeepsTheOtherFields) {
    message.Allocate(300, 8, nullptr);
    message.Fill("ab", 2);
    platform.fail("linx_alloc", {ENOMEM});
    EXPECT_EQ(message.Allocate(301, 4, nullptr), 1);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre("linx_alloc(12, 300) = s1", "linx_free_buf(s1)", "linx_alloc(8, 301) = null"));
    EXPECT_EQ(message.Sig(), nullptr);
    EXPECT_EQ(message.DataPtr(), nullptr);
    EXPECT_EQ(message.MsgType(), 300u);
    EXPECT_EQ(message.Length(), 8u);
    EXPECT_EQ(message.Fill("c", 1), 12);
}

TEST_F(RelayMessageTest, AFailedAllocationOfSizeZeroKeepsThePayloadPointer) {
    message.Allocate(300, 8, nullptr);
    char* const payload = message.DataPtr();
    platform.fail("linx_alloc", {ENOMEM});
    EXPECT_EQ(message.Allocate(301, 0, nullptr), 1);
    EXPECT_EQ(message.Sig(), nullptr);
    EXPECT_EQ(message.DataPtr(), payload);
    EXPECT_EQ(message.MsgType(), 300u);
    EXPECT_EQ(message.Fill("c", 1), 12) << "no signal is held";
}

TEST_F(RelayMessageTest, TheSizeHasNoLimit) {
    EXPECT_EQ(message.Allocate(300, 65533, nullptr), 0);
    EXPECT_EQ(message.Length(), 65533u);
    EXPECT_THAT(platform.takeCalls(), ElementsAre("linx_alloc(65537, 300) = s1"));
}

TEST_F(RelayMessageTest, TheBaseClassKeepsItsLimitWhateverTheSizeOfTheSignal) {
    message.Allocate(300, 65533, nullptr);
    EXPECT_EQ(message.IpcMessage::Allocate(300, 65533, nullptr), 90);
}

TEST_F(RelayMessageTest, FillWritesIntoTheSignal) {
    message.Allocate(300, 4, nullptr);
    EXPECT_EQ(message.Fill("ab", 2), 0);
    EXPECT_EQ(message.Fill("cde", 3), 12);
    EXPECT_EQ(message.Fill("cd", 2), 0);
    EXPECT_EQ(message.Fill("e", 1), 12);
    EXPECT_EQ(message.Fill(nullptr, 0), 0);
    EXPECT_EQ(platform.describe(message.Sig()), "300 'abcd'");
}

TEST_F(RelayMessageTest, FillRefusesACountWhoseSumWithThePositionWraps) {
    message.Allocate(300, 4, nullptr);
    message.Fill("ab", 2);
    EXPECT_EQ(message.Fill("cd", 0xFFFFFFFE), 12);
    EXPECT_EQ(message.Fill("cd", 2), 0);
    EXPECT_EQ(platform.describe(message.Sig()), "300 'abcd'");
}

TEST_F(RelayMessageTest, FillWithoutASignalIsRefusedEvenForZeroBytes) {
    EXPECT_EQ(message.Fill("a", 1), 12);
    EXPECT_EQ(message.Fill("a", 0), 12);
    EXPECT_EQ(message.Fill(nullptr, 0), 12);
}

TEST_F(RelayMessageTest, AllocateRestartsFilling) {
    message.Allocate(300, 2, nullptr);
    message.Fill("ab", 2);
    LinxSignal* received = platform.makeSignal(301, "cd");
    message.Allocate(301, 2, bytes(received));
    EXPECT_EQ(message.Fill("XY", 2), 0);
    EXPECT_EQ(platform.describe(received), "301 'XY'");
}

TEST_F(RelayMessageTest, DeallocateForgetsTheSignalAndNothingElse) {
    message.Allocate(300, 8, nullptr);
    message.Fill("abc", 3);
    message.SetSender("Peer");
    message.Deallocate();
    EXPECT_EQ(message.Sig(), nullptr);
    EXPECT_EQ(message.DataPtr(), nullptr);
    EXPECT_EQ(message.Length(), 8u);
    EXPECT_EQ(message.MsgType(), 300u);
    EXPECT_EQ(message.GetSender(), "Peer");
    EXPECT_EQ(message.Fill("d", 1), 12);
    EXPECT_THAT(platform.takeCalls(), ElementsAre("linx_alloc(12, 300) = s1"));
}

TEST_F(RelayMessageTest, SetTypeChangesTheSignalAndNotTheMessage) {
    message.Allocate(300, 0, nullptr);
    message.SetType(400);
    EXPECT_EQ(platform.describe(message.Sig()), "400 ''");
    EXPECT_EQ(message.MsgType(), 300u);
}

TEST_F(RelayMessageTest, SetTypeWithoutASignalDoesNothing) {
    message.SetType(400);
    EXPECT_EQ(message.MsgType(), 0u);
    message.Allocate(300, 0, nullptr);
    message.Deallocate();
    message.SetType(400);
    EXPECT_EQ(message.MsgType(), 300u);
}

TEST_F(RelayMessageTest, TheDestructorFreesTheHeldSignal) {
    auto holding = std::make_unique<RelayMessage>(&endpoint);
    holding->Allocate(300, 8, nullptr);
    holding.reset();
    EXPECT_THAT(platform.takeCalls(), ElementsAre("linx_alloc(12, 300) = s1", "linx_free_buf(s1)"));
    EXPECT_EQ(interposed::liveArrays(), 0u);
}

TEST_F(RelayMessageTest, TheDestructorFreesAnAdoptedSignal) {
    auto holding = std::make_unique<RelayMessage>(&endpoint);
    holding->Allocate(300, 4, bytes(platform.makeSignal(300, "abcd")));
    holding.reset();
    EXPECT_THAT(platform.takeCalls(), ElementsAre("linx_free_buf(s1)"));
}

TEST_F(RelayMessageTest, TheDestructorFreesNothingAfterDeallocate) {
    auto emptied = std::make_unique<RelayMessage>(&endpoint);
    emptied->Allocate(300, 8, nullptr);
    emptied->Deallocate();
    emptied.reset();
    EXPECT_THAT(platform.takeCalls(), ElementsAre("linx_alloc(12, 300) = s1"));
}

TEST_F(RelayMessageTest, TheDestructorFreesNothingWithoutAHandle) {
    auto holding = std::make_unique<RelayMessage>(&unopened);
    holding->Allocate(300, 4, bytes(platform.makeSignal(300, "abcd")));
    holding.reset();
    EXPECT_THAT(platform.takeCalls(), IsEmpty());
}

TEST_F(RelayMessageTest, SignalsComeFromTheHandleOfTheOwner) {
    LinxIpc other("Other");
    other.Init();
    RelayMessage others(&other);
    platform.takeCalls();
    others.Allocate(300, 4, nullptr);
    others.Allocate(301, 4, nullptr);
    EXPECT_THAT(platform.takeCalls(), ElementsAre("[Other]linx_alloc(8, 300) = s1", "[Other]linx_free_buf(s1)",
                                                  "[Other]linx_alloc(8, 301) = s2"));
}

TEST_F(RelayMessageTest, NothingIsLogged) {
    platform.fail("linx_alloc", {ENOMEM});
    message.Allocate(300, 4, nullptr);
    message.Fill("a", 1);
    EXPECT_EQ(platform.logObjects, 0u);
}

}  // namespace
