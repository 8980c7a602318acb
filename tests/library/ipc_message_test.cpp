#include <cerrno>
#include <string>

#include "fixture.h"

namespace {

class IpcMessageTest : public LibraryTest {
protected:
    char bytes[9] = "abcdefgh";
};

TEST_F(IpcMessageTest, ANewMessageIsEmpty) {
    IpcMessage message;
    EXPECT_EQ(message.MsgType(), 0u);
    EXPECT_EQ(message.Length(), 0u);
    EXPECT_EQ(message.DataPtr(), nullptr);
    EXPECT_EQ(message.GetSender(), "");
}

TEST_F(IpcMessageTest, AllocateCopiesTheSource) {
    IpcMessage message;
    EXPECT_EQ(message.Allocate(300, 8, bytes), 0);
    EXPECT_EQ(described(message), "300 from  'abcdefgh'");
    EXPECT_NE(message.DataPtr(), bytes);
}

TEST_F(IpcMessageTest, AllocateRestartsFillingEvenAfterCopyingASource) {
    IpcMessage message;
    message.Allocate(300, 8, bytes);
    EXPECT_EQ(message.Fill("XY", 2), 0);
    EXPECT_EQ(described(message), "300 from  'XYcdefgh'");
}

TEST_F(IpcMessageTest, TheLargestPayloadHas65532Bytes) {
    IpcMessage message;
    EXPECT_EQ(message.Allocate(300, 65532, nullptr), 0);
    EXPECT_EQ(message.Length(), 65532u);
    EXPECT_EQ(message.Allocate(301, 65533, nullptr), 90);
}

TEST_F(IpcMessageTest, ARefusedSizeStillSetsTheTypeAndEmptiesTheMessage) {
    IpcMessage message;
    message.Allocate(300, 8, bytes);
    message.Fill("XY", 2);
    char* const buffer = message.DataPtr();
    EXPECT_EQ(message.Allocate(301, 0xFFFFFFFF, nullptr), 90);
    EXPECT_EQ(message.MsgType(), 301u);
    EXPECT_EQ(message.Length(), 0u);
    EXPECT_EQ(message.DataPtr(), buffer);
    EXPECT_EQ(message.Fill("Z", 1), 12);
    EXPECT_EQ(message.Fill("Z", 0), 0);
    EXPECT_EQ(interposed::liveArrays(), 1u);
}

TEST_F(IpcMessageTest, ABufferKeptAfterARefusedSizeIsReplacedByTheNextAllocate) {
    IpcMessage message;
    message.Allocate(300, 100, nullptr);
    EXPECT_EQ(message.Allocate(300, 70000, nullptr), 90);
    EXPECT_EQ(interposed::liveArrays(), 1u);
    EXPECT_EQ(message.Allocate(300, 16, nullptr), 0);
    EXPECT_EQ(interposed::liveArrays(), 1u);
    EXPECT_EQ(message.Length(), 16u);
    interposed::refusesArrays = true;
    EXPECT_EQ(message.Allocate(300, 17, nullptr), 12) << "17 bytes do not fit into the new buffer of 16";
}

TEST_F(IpcMessageTest, ABufferKeptAfterARefusedSizeSurvivesAnEmptyAllocate) {
    IpcMessage message;
    message.Allocate(300, 100, nullptr);
    char* const buffer = message.DataPtr();
    message.Allocate(300, 70000, nullptr);
    EXPECT_EQ(message.Allocate(302, 0, nullptr), 0);
    EXPECT_EQ(message.DataPtr(), buffer);
    EXPECT_EQ(message.MsgType(), 302u);
}

TEST_F(IpcMessageTest, TheDestructorFreesTheBuffer) {
    {
        IpcMessage message;
        message.Allocate(300, 8, bytes);
        EXPECT_EQ(interposed::liveArrays(), 1u);
    }
    EXPECT_EQ(interposed::liveArrays(), 0u);
}

TEST_F(IpcMessageTest, TheDestructorFreesABufferKeptAfterARefusedSize) {
    {
        IpcMessage message;
        message.Allocate(300, 8, bytes);
        message.Allocate(300, 70000, nullptr);
    }
    EXPECT_EQ(interposed::liveArrays(), 0u);
}

TEST_F(IpcMessageTest, AnEmptyAllocateOnANewMessageTakesNoMemory) {
    IpcMessage message;
    EXPECT_EQ(message.Allocate(300, 0, nullptr), 0);
    EXPECT_EQ(message.DataPtr(), nullptr);
    EXPECT_EQ(message.MsgType(), 300u);
    EXPECT_EQ(message.Allocate(301, 0, bytes), 0);
    EXPECT_EQ(message.DataPtr(), nullptr);
    EXPECT_EQ(interposed::liveArrays(), 0u);
}

TEST_F(IpcMessageTest, ASmallerSizeKeepsTheBufferAndALargerReplacesIt) {
    IpcMessage message;
    message.Allocate(300, 100, nullptr);
    char* const buffer = message.DataPtr();
    EXPECT_EQ(message.Allocate(301, 10, nullptr), 0);
    EXPECT_EQ(message.DataPtr(), buffer);
    EXPECT_EQ(message.Length(), 10u);

    interposed::refusesArrays = true;
    EXPECT_EQ(message.Allocate(301, 100, nullptr), 0) << "the capacity has not shrunk";
    EXPECT_EQ(message.DataPtr(), buffer);
    EXPECT_EQ(message.Allocate(302, 101, nullptr), 12) << "101 bytes ask for a new buffer";
    EXPECT_EQ(message.Allocate(302, 200, nullptr), 0);
    EXPECT_EQ(message.Length(), 200u);
    EXPECT_EQ(interposed::liveArrays(), 1u);
}

TEST_F(IpcMessageTest, AReusedBufferIsNotCleared) {
    IpcMessage message;
    message.Allocate(300, 8, bytes);
    message.Allocate(301, 4, nullptr);
    EXPECT_EQ(described(message), "301 from  'abcd'");
}

TEST_F(IpcMessageTest, WhenMemoryRunsOutTheOldBufferIsGone) {
    IpcMessage message;
    message.Allocate(300, 8, bytes);
    message.Fill("XY", 2);
    interposed::refusesArrays = true;
    EXPECT_EQ(message.Allocate(301, 16, nullptr), 12);
    EXPECT_EQ(message.MsgType(), 301u);
    EXPECT_EQ(message.DataPtr(), nullptr);
    EXPECT_EQ(message.Length(), 0u);
    EXPECT_EQ(message.Fill("Z", 1), 12);
    EXPECT_EQ(interposed::liveArrays(), 0u);
    EXPECT_EQ(message.Allocate(302, 4, bytes), 0);
    EXPECT_EQ(described(message), "302 from  'abcd'");
}

TEST_F(IpcMessageTest, FillAppendsUpToTheLength) {
    IpcMessage message;
    message.Allocate(300, 8, nullptr);
    EXPECT_EQ(message.Fill("abcd", 4), 0);
    EXPECT_EQ(message.Fill("efgh", 4), 0);
    EXPECT_EQ(message.Fill("i", 1), 12);
    EXPECT_EQ(message.Fill("i", 0), 0);
    EXPECT_EQ(described(message), "300 from  'abcdefgh'");
}

TEST_F(IpcMessageTest, AnOverlongFillWritesNothingAndKeepsThePosition) {
    IpcMessage message;
    message.Allocate(300, 4, bytes);
    EXPECT_EQ(message.Fill("X", 1), 0);
    EXPECT_EQ(message.Fill("1234", 4), 12);
    EXPECT_EQ(message.Fill("YZ", 2), 0);
    EXPECT_EQ(described(message), "300 from  'XYZd'");
}

TEST_F(IpcMessageTest, FillIsLimitedByTheLengthNotByTheBuffer) {
    IpcMessage message;
    message.Allocate(300, 100, nullptr);
    message.Allocate(300, 4, nullptr);
    EXPECT_EQ(message.Fill("abcde", 5), 12);
    EXPECT_EQ(message.Fill("abcd", 4), 0);
}

TEST_F(IpcMessageTest, FillRefusesACountWhoseSumWithThePositionWraps) {
    IpcMessage message;
    message.Allocate(300, 8, bytes);
    message.Fill("XYZ", 3);
    EXPECT_EQ(message.Fill(bytes, 0xFFFFFFFF), 12);
    EXPECT_EQ(message.Fill(bytes, 0xFFFFFFFD), 12);
    EXPECT_EQ(message.Fill("1", 1), 0);
    EXPECT_EQ(described(message), "300 from  'XYZ1efgh'");
}

TEST_F(IpcMessageTest, ANullSourceWithoutBytesFillsNothing) {
    IpcMessage message;
    EXPECT_EQ(message.Fill(nullptr, 0), 0);
    EXPECT_EQ(message.Fill("a", 1), 12);
    message.Allocate(300, 4, bytes);
    EXPECT_EQ(message.Fill(nullptr, 0), 0);
    EXPECT_EQ(described(message), "300 from  'abcd'");
}

TEST_F(IpcMessageTest, ThePayloadMayBeWrittenInPlace) {
    IpcMessage message;
    message.Allocate(300, 2, nullptr);
    message.DataPtr()[0] = 'p';
    message.DataPtr()[1] = 'q';
    EXPECT_EQ(described(message), "300 from  'pq'");
}

TEST_F(IpcMessageTest, TheSenderIsCopiedAndReturnedByReference) {
    IpcMessage message;
    const std::string& sender = message.GetSender();
    std::string name = "Peer";
    message.SetSender(name);
    name = "changed";
    EXPECT_EQ(sender, "Peer");
    EXPECT_EQ(&message.GetSender(), &sender);
    message.SetSender(message.GetSender());
    EXPECT_EQ(sender, "Peer");
}

TEST_F(IpcMessageTest, AllocateKeepsTheSender) {
    IpcMessage message;
    message.SetSender("Peer");
    message.Allocate(300, 8, nullptr);
    message.Allocate(300, 70000, nullptr);
    EXPECT_EQ(message.GetSender(), "Peer");
}

TEST_F(IpcMessageTest, NothingIsLogged) {
    IpcMessage message;
    message.Allocate(300, 70000, nullptr);
    interposed::refusesArrays = true;
    message.Allocate(300, 8, nullptr);
    message.Fill("a", 1);
    EXPECT_THAT(platform.takeCalls(), IsEmpty());
}

}  // namespace
