#include "tests/kit/byte_order.h"

#include <cerrno>
#include <cstring>
#include <string>

#include "directory/LinxServerNameList.h"
#include "fixture.h"

namespace {

using linxtest::bytesFrom;
using linxtest::bytesOf;
using linxtest::written;

/// The bytes of the signals that the library writes, and what it reads from the bytes of others.
class ByteOrderTest : public EndpointTest {
protected:
    ByteOrderTest() { platform.answerHunts("Peer", {7}); }

    std::string notified(unsigned type, std::string payload) {
        IpcMessage message;
        message.Allocate(type, static_cast<unsigned>(payload.size()), payload.data());
        EXPECT_EQ(endpoint.Notify("Peer", message, true), 0);
        return bytesOf(platform.sent.back().bytes);
    }

    /// Lets a signal arrive that consists of these bytes, number word included.
    void arrive(const std::string& bytes) {
        const std::string signal = bytesFrom(bytes);
        std::uint32_t number = 0;
        std::memcpy(&number, signal.data(), sizeof number);
        platform.arrive(7, number, signal.substr(sizeof number));
    }
};

TEST_F(ByteOrderTest, ANotificationIsItsTypeThenItsPayload) {
    EXPECT_EQ(notified(0x12345678, "abc"), written("12 34 56 78 61 62 63", "78 56 34 12 61 62 63"));
    EXPECT_EQ(notified(300, ""), written("00 00 01 2C", "2C 01 00 00"));
}

TEST_F(ByteOrderTest, ANotificationDoesNotRelyOnThePlatformForItsType) {
    platform.allocWritesNumber = false;
    EXPECT_EQ(notified(0x12345678, "abc"), written("12 34 56 78 61 62 63", "78 56 34 12 61 62 63"));
}

TEST_F(ByteOrderTest, AShutdownRequestIsItsTypeAlone) {
    EXPECT_EQ(notified(1280, ""), written("00 00 05 00", "00 05 00 00"));
}

TEST_F(ByteOrderTest, AProcessDiedNoticeIsItsTypeThenTheProcess) {
    EXPECT_EQ(notified(1281, word(e_GpsHal)), written("00 00 05 01 00 00 00 0C", "01 05 00 00 0C 00 00 00"));
}

TEST_F(ByteOrderTest, AProcessDiedNoticeIsReadAsItIsWritten) {
    arrive(written("00 00 05 01 00 00 00 0C", "01 05 00 00 0C 00 00 00"));
    IpcMessage message;
    EXPECT_EQ(endpoint.Receive(-1, 300, "GpsHal", &message), EHOSTUNREACH);
    EXPECT_EQ(message.MsgType(), 1281u);
    EXPECT_EQ(bytesOf(message.DataPtr(), message.Length()), written("00 00 00 0C", "0C 00 00 00"));
}

TEST_F(ByteOrderTest, ANegativeProcessIsReadAsItIsWritten) {
    arrive(written("00 00 05 01 FF FF FF FE", "01 05 00 00 FE FF FF FF"));
    EXPECT_EQ(endpoint.Receive(-1, 300, "UndefinedServer", nullptr), EHOSTUNREACH);
    EXPECT_THAT(platform.takeCalls(),
                ::testing::Contains("log 16 linxIpc:813 Receive: Process died -2 - UndefinedServer"));
}

TEST_F(ByteOrderTest, AMessageHasTheTypeOfItsSignalAndItsBytesUnchanged) {
    arrive(written("12 34 56 78 01 02 03", "78 56 34 12 01 02 03"));
    EXPECT_EQ(endpoint.Receive(-1, 0, LinxIpc::emptyString, nullptr), 0);
    EXPECT_EQ(endpoint.rxMessage.MsgType(), 0x12345678u);
    EXPECT_EQ(bytesOf(endpoint.rxMessage.DataPtr(), endpoint.rxMessage.Length()), "01 02 03");
}

TEST_F(ByteOrderTest, ARelayedSignalChangesItsNumberWordAlone) {
    arrive(written("00 00 01 2C 01 02 03 04 05", "2C 01 00 00 01 02 03 04 05"));
    endpoint.RegisterRelayHandler(
        300,
        [](LinxIpc* relay, void*) {
            relay->relayMessage.SetType(0x12345678);
            EXPECT_EQ(relay->Relay(relay->relayMessage, "Peer"), 0);
        },
        nullptr);
    EXPECT_EQ(endpoint.Receive(-1, 0, LinxIpc::emptyString, nullptr), 0);
    ASSERT_EQ(platform.sent.size(), 1u);
    EXPECT_EQ(bytesOf(platform.sent[0].bytes), written("12 34 56 78 01 02 03 04 05", "78 56 34 12 01 02 03 04 05"));
}

}  // namespace
