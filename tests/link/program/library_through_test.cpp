// The library's calls through two links, under names as the directory has them.

#include <cerrno>
#include <chrono>

#include "ipc/linxIpc.h"
#include "tests/link/program/through.h"

namespace {

using linktest::In;
using linktest::ThroughTest;

constexpr unsigned question = 700;
constexpr unsigned answer = 701;
constexpr unsigned news = 702;
constexpr unsigned ended = 703;
constexpr unsigned shutdownRequest = 1280;
constexpr int limit = static_cast<int>(patience);

class LibraryThrough : public ThroughTest {
protected:
    /// A process of the far domain with an endpoint of this name; it says when that is open.
    std::unique_ptr<Child> farProcess(const std::string& name, const std::function<void(LinxIpc&)>& work) {
        auto child = std::make_unique<Child>([this, name, work](Line& parent) {
            const In in(far);
            LinxIpc endpoint(name);
            ASSERT_EQ(endpoint.Init(), 0);
            parent.tell();
            work(endpoint);
        });
        child->hear();
        return child;
    }
};

int notify(LinxIpc& from, const std::string& to, unsigned type, const std::string& text = "") {
    IpcMessage message;
    std::string payload = text;
    EXPECT_EQ(message.Allocate(type, static_cast<unsigned>(payload.size()), payload.data()), 0);
    return from.Notify(to, message, true);
}

std::string textOf(IpcMessage& message) {
    return std::string(message.DataPtr(), message.Length());
}

void answerInCapitals(LinxIpc* endpoint, void*) {
    std::string text = textOf(endpoint->rxMessage);
    for (char& letter : text) letter = static_cast<char>(letter - 'a' + 'A');
    EXPECT_EQ(notify(*endpoint, endpoint->rxMessage.GetSender(), answer, text), 0);
}

/// Until somebody kills it.
void answerAlways(LinxIpc& endpoint) {
    endpoint.RegisterHandler(question, answerInCapitals, nullptr);
    while (endpoint.Receive(limit, 0, LinxIpc::emptyString, nullptr) == 0) {
    }
}

void receiveNews(LinxIpc& endpoint) {
    EXPECT_EQ(endpoint.Receive(limit, 0, LinxIpc::emptyString, nullptr), 0);
    EXPECT_EQ(news, endpoint.rxMessage.MsgType());
    EXPECT_EQ(textOf(endpoint.rxMessage), "the sun shines");
    EXPECT_EQ(endpoint.rxMessage.GetSender(), "toNear/UiMgr");
}

int ask(LinxIpc& endpoint, const std::string& text, std::string& reply) {
    IpcMessage message;
    IpcMessage answered;
    std::string payload = text;
    EXPECT_EQ(message.Allocate(question, static_cast<unsigned>(payload.size()), payload.data()), 0);
    const int result = endpoint.Request("toFar/EncodeCtrl", message, answer, limit, &answered);
    if (result == 0) reply = textOf(answered);
    return result;
}

TEST_F(LibraryThrough, ANotificationArrivesWithItsSendersName) {
    startBoth("export = [\"*\"]\nimport = [\"EncodeCtrl\"]\n");
    const auto receiver = farProcess("EncodeCtrl", receiveNews);
    const In in(near);
    LinxIpc endpoint("UiMgr");
    ASSERT_EQ(endpoint.Init(), 0);
    EXPECT_EQ(notify(endpoint, "toFar/EncodeCtrl", news, "the sun shines"), 0);
    EXPECT_EQ(receiver->exitStatus(), 0);
}

TEST_F(LibraryThrough, ARequestIsAnsweredByAHandler) {
    startBoth();
    const auto server = farProcess("EncodeCtrl", answerAlways);
    const In in(near);
    LinxIpc endpoint("UiMgr");
    ASSERT_EQ(endpoint.Init(), 0);
    for (int i = 0; i < 100; ++i) {
        std::string reply;
        ASSERT_EQ(ask(endpoint, "word", reply), 0);
        EXPECT_EQ(reply, "WORD");
    }
    server->kill9();
}

TEST_F(LibraryThrough, AServerThatIsKilledAndBackAnswersAgain) {
    startBoth();
    const In in(near);
    LinxIpc endpoint("UiMgr");
    ASSERT_EQ(endpoint.Init(), 0);
    for (int i = 0; i < 3; ++i) {
        const auto server = farProcess("EncodeCtrl", answerAlways);
        std::string reply;
        const auto limitOfAll = std::chrono::steady_clock::now() + std::chrono::milliseconds(patience);
        // The end of the last one may be on its way still, or may meet the request.
        while (ask(endpoint, "word", reply) != 0 && std::chrono::steady_clock::now() < limitOfAll) {
        }
        EXPECT_EQ(reply, "WORD");
        server->kill9();
    }
}

TEST_F(LibraryThrough, AMessageIsRelayedAcross) {
    startBoth();
    const auto receiver = farProcess("EncodeCtrl", [](LinxIpc& endpoint) {
        EXPECT_EQ(endpoint.Receive(limit, 0, LinxIpc::emptyString, nullptr), 0);
        EXPECT_EQ(textOf(endpoint.rxMessage), "passed on");
    });
    const In in(near);
    LinxIpc sender("sender");
    LinxIpc relay("relay");
    ASSERT_EQ(sender.Init(), 0);
    ASSERT_EQ(relay.Init(), 0);
    ASSERT_EQ(notify(sender, "relay", news, "passed on"), 0);
    relay.RegisterRelayHandler(
        news, [](LinxIpc* own, void*) { EXPECT_EQ(own->Relay(own->relayMessage, "toFar/EncodeCtrl"), 0); }, nullptr);
    ASSERT_EQ(notify(sender, "relay", shutdownRequest), 0);
    int result;
    while ((result = relay.Receive(limit, 0, LinxIpc::emptyString, nullptr)) == 0) {
    }
    EXPECT_EQ(result, ESHUTDOWN);
    EXPECT_EQ(receiver->exitStatus(), 0);
}

TEST_F(LibraryThrough, AnAsynchronousRequestHandlesWhatComesBeforeItsAnswer) {
    startBoth();
    const auto server = farProcess("EncodeCtrl", [](LinxIpc& endpoint) {
        EXPECT_EQ(endpoint.Receive(limit, 0, LinxIpc::emptyString, nullptr), 0);
        const std::string asker = endpoint.rxMessage.GetSender();
        for (int i = 0; i < 3; ++i) EXPECT_EQ(notify(endpoint, asker, news), 0);
        EXPECT_EQ(notify(endpoint, asker, answer, "done"), 0);
        endpoint.Receive(limit, 0, LinxIpc::emptyString, nullptr);
    });
    const In in(near);
    LinxIpc endpoint("UiMgr");
    ASSERT_EQ(endpoint.Init(), 0);
    int heard = 0;
    const auto count = [](LinxIpc*, void* calls) { ++*static_cast<int*>(calls); };
    endpoint.RegisterHandler(news, count, &heard);
    IpcMessage message;
    message.Allocate(question, 0, nullptr);
    EXPECT_EQ(endpoint.AsyncRequest("toFar/EncodeCtrl", message, answer, limit, nullptr), 0);
    EXPECT_EQ(textOf(endpoint.rxMessage), "done");
    EXPECT_EQ(heard, 3);
    server->kill9();
}

TEST_F(LibraryThrough, ASupervisedPeersEndCallsTheHandler) {
    startBoth();
    const auto mortal = farProcess("EncodeCtrl", answerAlways);
    const In in(near);
    LinxIpc endpoint("UiMgr");
    ASSERT_EQ(endpoint.Init(), 0);
    std::string reply;
    ASSERT_EQ(ask(endpoint, "word", reply), 0);
    int ends = 0;
    const auto count = [](LinxIpc*, void* calls) { ++*static_cast<int*>(calls); };
    endpoint.RegisterHandler(ended, count, &ends);
    ASSERT_EQ(endpoint.Attach("toFar/EncodeCtrl", ended), 0);
    mortal->kill9();
    EXPECT_EQ(endpoint.Receive(limit, 0, LinxIpc::emptyString, nullptr), 0);
    EXPECT_EQ(ends, 1);
    EXPECT_EQ(endpoint.rxMessage.GetSender(), "toFar/EncodeCtrl");
}

}  // namespace
