// Results, reserved signal numbers and bits of the log mask, which users compare with numbers of their own.
#include <string>

#include "directory/e_Process.h"
#include "fixture.h"
#include "ipc/LogLevel.h"
#include "ipc/ReservedSignal.h"

namespace {

static_assert(e_ShutdownSignal == 1280 && e_ProcessDiedSignal == 1281 && e_WaitGoesOnSignal == 13264);
static_assert(LINX_OS_HUNT_SIG == 251 && LINX_OS_TIMEOUT_SIG == 252);
static_assert(e_LogLookup == 1 && e_LogError == 2 && e_LogSendFailure == 4 && e_LogEvent == 16 && e_LogHunt == 32 &&
              e_LogRequest == 128 && e_LogShutdown == 512);

class NumbersTest : public EndpointTest {
protected:
    NumbersTest() { platform.setName(7, "Peer"); }

    IpcMessage message;
};

TEST_F(NumbersTest, SuccessIs0) {
    EXPECT_EQ(message.Allocate(300, 4, nullptr), 0);
    platform.arrive(7, 300);
    EXPECT_EQ(endpoint.Receive(-1, 300, LinxIpc::emptyString, &message), 0);
}

TEST_F(NumbersTest, AnEndpointThatCannotServeGivesMinus1) {
    EXPECT_EQ(unopened.Receive(0, 0, LinxIpc::emptyString, nullptr), -1);
    EXPECT_EQ(unopened.Notify("Peer", message, true), -1);
    EXPECT_EQ(endpoint.Notify("Nobody", message, true), -1);
    EXPECT_EQ(endpoint.Init(), -1);
}

TEST_F(NumbersTest, OperationsOnPlainDescriptorsAreRefusedWith1) {
    unsigned count = 0;
    EXPECT_EQ(endpoint.Send(nullptr, 0, count), 1);
    EXPECT_EQ(endpoint.Receive(nullptr, 0, count), 1);
    EXPECT_EQ(endpoint.Blocking(true), 1);
}

TEST_F(NumbersTest, ARelayMessageWithoutASignalToHoldGives1) {
    platform.fail("linx_alloc", {12});
    EXPECT_EQ(endpoint.relayMessage.Allocate(300, 4, nullptr), 1);
}

TEST_F(NumbersTest, NoMemoryIs12) {
    interposed::refusesArrays = true;
    EXPECT_EQ(message.Allocate(300, 4, nullptr), 12);
}

TEST_F(NumbersTest, AFillBeyondTheLengthIs12) {
    message.Allocate(300, 4, nullptr);
    EXPECT_EQ(message.Fill("12345", 5), 12);
    EXPECT_EQ(endpoint.relayMessage.Fill("", 0), 12);
}

TEST_F(NumbersTest, TooLargeAPayloadIs90) {
    EXPECT_EQ(message.Allocate(300, 65533, nullptr), 90);
}

TEST_F(NumbersTest, AShutdownRequestIsSignal1280AndGives108) {
    platform.arrive(7, 1280);
    EXPECT_EQ(endpoint.Receive(-1, 0, LinxIpc::emptyString, nullptr), 108);
}

TEST_F(NumbersTest, AWaitThatRunsOutGives110) {
    EXPECT_EQ(endpoint.Receive(0, 0, LinxIpc::emptyString, nullptr), 110);
}

TEST_F(NumbersTest, TheDeathOfThePeerIsSignal1281AndGives113) {
    platform.arrive(7, 1281, word(e_ConfigMgr));
    EXPECT_EQ(endpoint.Receive(-1, 300, "ConfigMgr", nullptr), 113);
}

TEST_F(NumbersTest, Signal13264DoesNotEndTheWait) {
    platform.arrive(7, 13264);
    EXPECT_EQ(endpoint.Receive(0, 0, LinxIpc::emptyString, nullptr), 110);
}

}  // namespace
