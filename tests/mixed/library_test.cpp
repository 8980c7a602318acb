// The library's endpoints, in processes of both word sizes.

#include <poll.h>
#include <syslog.h>

#include <cerrno>
#include <cstring>

#include "directory/LinxServerNameList.h"
#include "ipc/linxIpc.h"
#include "tests/mixed/support/mixed_test.h"

namespace {

constexpr unsigned question = 700;
constexpr unsigned answer = 701;
constexpr unsigned news = 702;
constexpr unsigned ended = 703;
constexpr unsigned shutdownRequest = 1280;
constexpr unsigned processDied = 1281;
constexpr int limit = static_cast<int>(patience);
constexpr unsigned large = 48u << 10;

const std::string& uiName() {
    return LinxServerNameList::Instance().Name(e_UiMgr);
}
const std::string& stateName() {
    return LinxServerNameList::Instance().Name(e_StateMgr);
}

class Library : public MixedTest {
protected:
    void TearDown() override {
        closelog();
        MixedTest::TearDown();
    }
};

int notify(LinxIpc& from, const std::string& to, unsigned type, const Bytes& payload = {}) {
    IpcMessage message;
    Bytes bytes = payload;
    EXPECT_EQ(0, message.Allocate(type, static_cast<unsigned>(bytes.size()), reinterpret_cast<char*>(bytes.data())));
    return from.Notify(to, message, true);
}

Bytes bytesOf(IpcMessage& message) {
    const auto* first = reinterpret_cast<unsigned char*>(message.DataPtr());
    return Bytes(first, first + message.Length());
}

void answerReversed(LinxIpc* endpoint, void*) {
    const Bytes bytes = bytesOf(endpoint->rxMessage);
    EXPECT_EQ(0, notify(*endpoint, endpoint->rxMessage.GetSender(), answer, Bytes(bytes.rbegin(), bytes.rend())));
}

void serve(LinxIpc& endpoint) {
    int result;
    while ((result = endpoint.Receive(limit, 0, LinxIpc::emptyString, nullptr)) == 0) {
    }
    EXPECT_EQ(ESHUTDOWN, result);
}

/// The state manager. It answers questions; passes news on; and to a question without payload says who has died.
const Role stateManager("Library.stateManager", [](Line& parent) {
    LinxIpc endpoint(stateName());
    ASSERT_EQ(0, endpoint.Init());
    endpoint.RegisterHandler(
        question,
        [](LinxIpc* own, void*) {
            if (own->rxMessage.Length() != 0) return answerReversed(own, nullptr);
            for (const e_Process process : {e_GpsHal, e_StateMgr}) {
                Bytes payload(sizeof process);
                std::memcpy(payload.data(), &process, sizeof process);
                EXPECT_EQ(0, notify(*own, uiName(), processDied, payload));
            }
        },
        nullptr);
    endpoint.RegisterRelayHandler(
        news, [](LinxIpc* own, void*) { EXPECT_EQ(0, own->Relay(own->relayMessage, uiName())); }, nullptr);
    parent.tell();
    serve(endpoint);
});

TEST_F(Library, RequestsOfEverySizeAreAnswered) {
    Child other(stateManager.in(Size::other));
    other.hear();
    LinxIpc endpoint(uiName());
    ASSERT_EQ(0, endpoint.Init());
    for (const unsigned size : {1u, 4u, 5u, 100u, 4096u, large, 65532u}) {
        IpcMessage message;
        IpcMessage reply;
        Bytes bytes = pattern(size, size);
        message.Allocate(question, size, reinterpret_cast<char*>(bytes.data()));
        ASSERT_EQ(0, endpoint.Request(stateName(), message, answer, limit, &reply));
        EXPECT_TRUE(Bytes(bytes.rbegin(), bytes.rend()) == bytesOf(reply)) << size;
        EXPECT_EQ(stateName(), reply.GetSender());
    }
    EXPECT_EQ(0, notify(endpoint, stateName(), shutdownRequest));
    EXPECT_EQ(0, other.exitStatus());
}

TEST_F(Library, ARequestEndsWithTheNewsOfItsPeersDeath) {
    Child other(stateManager.in(Size::other));
    other.hear();
    LinxIpc endpoint(uiName());
    ASSERT_EQ(0, endpoint.Init());
    IpcMessage message;
    message.Allocate(question, 0, nullptr);
    EXPECT_EQ(EHOSTUNREACH, endpoint.Request(stateName(), message, answer, limit, nullptr));
    EXPECT_EQ(0, notify(endpoint, stateName(), shutdownRequest));
    EXPECT_EQ(0, other.exitStatus());
}

TEST_F(Library, AnAsynchronousRequestDispatchesWhatComesMeanwhile) {
    Child other(stateManager.in(Size::other));
    other.hear();
    LinxIpc endpoint(uiName());
    ASSERT_EQ(0, endpoint.Init());
    int newsHeard = 0;
    int answersHeard = 0;
    const auto count = [](LinxIpc*, void* calls) { ++*static_cast<int*>(calls); };
    endpoint.RegisterHandler(news, count, &newsHeard);
    endpoint.RegisterHandler(answer, count, &answersHeard);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(0, notify(endpoint, stateName(), news, Bytes{1}));
    IpcMessage message;
    char text[] = "abc";
    message.Allocate(question, 3, text);
    EXPECT_EQ(0, endpoint.AsyncRequest(stateName(), message, answer, limit, nullptr));
    EXPECT_EQ((Bytes{'c', 'b', 'a'}), bytesOf(endpoint.rxMessage));
    EXPECT_EQ(3, newsHeard);
    EXPECT_EQ(1, answersHeard);
    EXPECT_EQ(0, notify(endpoint, stateName(), shutdownRequest));
    EXPECT_EQ(0, other.exitStatus());
}

TEST_F(Library, ALargeMessageIsRelayedWholeInTheRelayersName) {
    Child other(stateManager.in(Size::other));
    other.hear();
    LinxIpc endpoint(uiName());
    ASSERT_EQ(0, endpoint.Init());
    for (uint32_t i = 0; i < 10; ++i) {
        const Bytes bytes = pattern(large, i);
        EXPECT_EQ(0, notify(endpoint, stateName(), news, bytes));
        ASSERT_EQ(0, endpoint.Receive(limit, 0, LinxIpc::emptyString, nullptr));
        EXPECT_EQ(news, endpoint.rxMessage.MsgType());
        EXPECT_EQ(stateName(), endpoint.rxMessage.GetSender());
        EXPECT_TRUE(bytes == bytesOf(endpoint.rxMessage)) << i;
    }
    EXPECT_EQ(0, notify(endpoint, stateName(), shutdownRequest));
    EXPECT_EQ(0, other.exitStatus());
}

TEST_F(Library, ASupervisedPeersEndIsHeardWithItsNameAndItsNextIncarnationFound) {
    LinxIpc endpoint(uiName());
    ASSERT_EQ(0, endpoint.Init());
    for (int i = 0; i < 5; ++i) {
        Child incarnation(stateManager.in(i % 2 == 0 ? Size::other : Size::own));
        incarnation.hear();
        IpcMessage message;
        IpcMessage reply;
        char text[] = "again";
        message.Allocate(question, 5, text);
        ASSERT_EQ(0, endpoint.Request(stateName(), message, answer, limit, &reply)) << i;
        ASSERT_EQ(0, endpoint.Attach(stateName().c_str(), ended));
        incarnation.kill9();
        EXPECT_EQ(0, endpoint.Receive(limit, ended, LinxIpc::emptyString, nullptr));
        EXPECT_EQ(stateName(), endpoint.rxMessage.GetSender());
    }
}

/// Waits for events in a poll loop of its own, until it is asked to shut down. Says how many there were.
const Role poller("Library.poller", [](Line& parent) {
    LinxIpc endpoint(stateName());
    ASSERT_EQ(0, endpoint.Init());
    uint32_t heard = 0;
    endpoint.RegisterHandler(
        news, [](LinxIpc*, void* count) { ++*static_cast<uint32_t*>(count); }, &heard);
    parent.tell();
    int result;
    do {
        pollfd readable = {endpoint.Descriptor(), POLLIN, 0};
        ASSERT_EQ(1, poll(&readable, 1, limit)) << "asleep after " << heard;
        result = endpoint.Receive(0, 0, LinxIpc::emptyString, nullptr);
    } while (result == 0 || result == ETIMEDOUT);
    EXPECT_EQ(ESHUTDOWN, result);
    parent.tell(heard);
});

TEST_F(Library, APollLoopInTheOtherSizeHearsEveryMessage) {
    Child other(poller.in(Size::other));
    other.hear();
    LinxIpc endpoint(uiName());
    ASSERT_EQ(0, endpoint.Init());
    for (int i = 0; i < 1000; ++i) ASSERT_EQ(0, notify(endpoint, stateName(), news));
    EXPECT_EQ(0, notify(endpoint, stateName(), shutdownRequest));
    EXPECT_EQ(1000u, other.hear());
    EXPECT_EQ(0, other.exitStatus());
}

}  // namespace
