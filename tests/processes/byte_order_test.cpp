// What lies in the memory of a signal that another process sent.

#include "tests/kit/byte_order.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "directory/LinxServerNameList.h"
#include "ipc/linxIpc.h"
#include "tests/kit/child.h"
#include "tests/kit/domain_test.h"
#include "tests/kit/signals.h"

namespace {

using linxtest::bytesFrom;
using linxtest::bytesOf;
using linxtest::written;

using ByteOrder = ProcessTest;

constexpr uint32_t processDied = 1281;

/// The next signal, from its number word on.
std::string nextSignal(LINX* linx) {
    const uint32_t any = 0;
    LinxSignal* signal = nullptr;
    const int size = linx_receive_w_tmo(linx, &signal, patience, &any);
    if (size <= 0) return "nothing came";
    const std::string bytes = bytesOf(signal, static_cast<size_t>(size));
    EXPECT_EQ(linx_free_buf(linx, &signal), 0);
    return bytes;
}

/// A signal that says that GpsHal has died.
LinxSignal* noticeAboutGpsHal(LINX* linx) {
    LinxSignal* notice = linx_alloc(linx, 8, processDied);
    const int32_t process = e_GpsHal;
    std::memcpy(payloadOf(notice), &process, sizeof process);
    return notice;
}

/// A process with an endpoint of the platform that lives until it is killed.
Child::Body silent(const std::string& name) {
    return [=](Line& parent) {
        Endpoint endpoint(name);
        parent.tell();
        parent.hear();
    };
}

TEST_F(ByteOrder, ASignalIsItsNumberThenItsPayload) {
    Endpoint endpoint("reader");
    Child writer([](Line&) {
        Endpoint own("writer");
        EXPECT_EQ(sendBytes(own, hunt(own, "reader"), 0x12345678, {'a', 'b', 'c'}), 0);
    });
    EXPECT_EQ(nextSignal(endpoint), written("12 34 56 78 61 62 63", "78 56 34 12 61 62 63"));
    EXPECT_EQ(writer.exitStatus(), 0);
}

TEST_F(ByteOrder, TheAnswerToAHuntIsItsNumberAlone) {
    Child peer(silent("peer"));
    peer.hear();
    Endpoint endpoint("hunter");
    ASSERT_EQ(linx_hunt(endpoint, "peer", nullptr), 0);
    EXPECT_EQ(nextSignal(endpoint), written("00 00 00 FB", "FB 00 00 00"));
}

TEST_F(ByteOrder, ATimeOutIsItsNumberAlone) {
    Endpoint endpoint("waiter");
    ASSERT_NE(linx_request_tmo(endpoint, 1, nullptr), 0u);
    EXPECT_EQ(nextSignal(endpoint), written("00 00 00 FC", "FC 00 00 00"));
}

TEST_F(ByteOrder, TheNoticeOfAnEndIsTheSignalThatWasHandedOver) {
    Child peer(silent("GpsHal"));
    peer.hear();
    Endpoint endpoint("supervisor");
    LinxSignal* notice = noticeAboutGpsHal(endpoint);
    ASSERT_NE(linx_attach(endpoint, &notice, hunt(endpoint, "GpsHal")), 0u);
    peer.kill9();
    EXPECT_EQ(nextSignal(endpoint), written("00 00 05 01 00 00 00 0C", "01 05 00 00 0C 00 00 00"));
}

TEST_F(ByteOrder, TheLibrarysNoticeOfAnEndIsItsNumberAlone) {
    Child peer(silent("GpsHal"));
    peer.hear();
    LinxIpc endpoint("supervisor");
    ASSERT_EQ(endpoint.Init(), 0);
    ASSERT_EQ(endpoint.Attach("GpsHal", processDied), 0);
    peer.kill9();
    EXPECT_EQ(nextSignal(endpoint.Linx()), written("00 00 05 01", "01 05 00 00"));
}

TEST_F(ByteOrder, TheLibrarysProcessDiedNoticeIsItsNumberThenTheProcess) {
    Endpoint endpoint("reader");
    Child writer([](Line&) {
        LinxIpc own("writer");
        ASSERT_EQ(own.Init(), 0);
        int32_t process = e_GpsHal;
        IpcMessage notice;
        notice.Allocate(processDied, sizeof process, reinterpret_cast<char*>(&process));
        EXPECT_EQ(own.Notify("reader", notice, true), 0);
    });
    EXPECT_EQ(nextSignal(endpoint), written("00 00 05 01 00 00 00 0C", "01 05 00 00 0C 00 00 00"));
    EXPECT_EQ(writer.exitStatus(), 0);
}

TEST_F(ByteOrder, ANoticeWrittenByteForByteEndsTheWaitForItsProcess) {
    Child awaiter([](Line& parent) {
        LinxIpc own("awaiter");
        ASSERT_EQ(own.Init(), 0);
        parent.tell();
        EXPECT_EQ(own.Receive(static_cast<int>(patience), 300, "GpsHal", nullptr), EHOSTUNREACH);
        EXPECT_EQ(bytesOf(own.rxMessage.DataPtr(), own.rxMessage.Length()), written("00 00 00 0C", "0C 00 00 00"));
    });
    awaiter.hear();
    Endpoint endpoint("writer");
    const std::string bytes = bytesFrom(written("00 00 05 01 00 00 00 0C", "01 05 00 00 0C 00 00 00"));
    const LinxSpid to = hunt(endpoint, "awaiter");
    LinxSignal* signal = linx_alloc(endpoint, 8, 0);
    std::memcpy(signal, bytes.data(), bytes.size());
    ASSERT_EQ(linx_send(endpoint, &signal, to), 0);
    EXPECT_EQ(awaiter.exitStatus(), 0);
}

}  // namespace
