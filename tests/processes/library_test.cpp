// The library's endpoints in processes of their own.

#include <poll.h>
#include <syslog.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "directory/LinxServerNameList.h"
#include "ipc/linxIpc.h"
#include "tests/processes/support/role.h"
#include "tests/processes/support/signals.h"
#include "tests/processes/support/whole_arena_test.h"

namespace {

constexpr unsigned question = 700;
constexpr unsigned answer = 701;
constexpr unsigned news = 702;
constexpr unsigned ended = 703;
constexpr unsigned shutdownRequest = 1280;
constexpr unsigned processDied = 1281;
constexpr int limit = static_cast<int>(patience);

/// Two servers of the directory stand for all.
const std::string& uiName() {
    return LinxServerNameList::Instance().Name(e_UiMgr);
}
const std::string& stateName() {
    return LinxServerNameList::Instance().Name(e_StateMgr);
}

class Library : public WholeArenaTest {
protected:
    void TearDown() override {
        closelog();
        WholeArenaTest::TearDown();
    }
};

int notify(LinxIpc& from, const std::string& to, unsigned type, const std::string& text = "") {
    IpcMessage message;
    std::string payload = text;
    EXPECT_EQ(0, message.Allocate(type, static_cast<unsigned>(payload.size()), payload.data()));
    return from.Notify(to, message, true);
}

std::string textOf(IpcMessage& message) {
    return std::string(message.DataPtr(), message.Length());
}

/// Receives and dispatches until it is asked to shut down.
void serve(LinxIpc& endpoint) {
    int result;
    while ((result = endpoint.Receive(limit, 0, LinxIpc::emptyString, nullptr)) == 0) {
    }
    EXPECT_EQ(ESHUTDOWN, result);
}

void answerInCapitals(LinxIpc* endpoint, void*) {
    std::string text = textOf(endpoint->rxMessage);
    for (char& letter : text) letter = static_cast<char>(letter - 'a' + 'A');
    EXPECT_EQ(0, notify(*endpoint, endpoint->rxMessage.GetSender(), answer, text));
}

/// A server under the name of the state manager, which says when it is open.
void run(Line& parent, unsigned type, void (*handler)(LinxIpc*, void*)) {
    LinxIpc endpoint(stateName());
    ASSERT_EQ(0, endpoint.Init());
    endpoint.RegisterHandler(type, handler, nullptr);
    parent.tell();
    serve(endpoint);
}

const Role capitals("Library.capitals", [](Line& parent) { run(parent, question, answerInCapitals); });
const Role silent("Library.silent", [](Line& parent) { run(parent, question, [](LinxIpc*, void*) {}); });

void count(LinxIpc*, void* calls) {
    ++*static_cast<int*>(calls);
}

const Role notified("Library.notified", [](Line& parent) {
    LinxIpc endpoint(stateName());
    ASSERT_EQ(0, endpoint.Init());
    parent.tell();
    EXPECT_EQ(0, endpoint.Receive(limit, 0, LinxIpc::emptyString, nullptr));
    EXPECT_EQ(news, endpoint.rxMessage.MsgType());
    EXPECT_EQ(uiName(), endpoint.rxMessage.GetSender());
    EXPECT_EQ("the sun shines", textOf(endpoint.rxMessage));
});

TEST_F(Library, ANotificationArrivesWithItsSendersName) {
    Child receiver(notified);
    receiver.hear();
    LinxIpc endpoint(uiName());
    ASSERT_EQ(0, endpoint.Init());
    EXPECT_EQ(0, notify(endpoint, stateName(), news, "the sun shines"));
    EXPECT_EQ(0, receiver.exitStatus());
}

TEST_F(Library, ARequestIsAnsweredByAHandler) {
    Child asked(capitals);
    asked.hear();
    LinxIpc endpoint(uiName());
    ASSERT_EQ(0, endpoint.Init());
    for (int i = 0; i < 100; ++i) {
        IpcMessage message;
        IpcMessage reply;
        char text[] = "word";
        message.Allocate(question, 4, text);
        ASSERT_EQ(0, endpoint.Request(stateName(), message, answer, limit, &reply));
        EXPECT_EQ("WORD", textOf(reply));
        EXPECT_EQ(stateName(), reply.GetSender());
    }
    EXPECT_EQ(0, notify(endpoint, stateName(), shutdownRequest));
    EXPECT_EQ(0, asked.exitStatus());
}

const Role reversing("Library.reversing", [](Line& parent) {
    run(parent, question, [](LinxIpc* endpoint, void*) {
        const std::string text = textOf(endpoint->rxMessage);
        EXPECT_EQ(0, notify(*endpoint, endpoint->rxMessage.GetSender(), answer, {text.rbegin(), text.rend()}));
    });
});

TEST_F(Library, RequestsOfEverySizeAreAnswered) {
    Child asked(reversing);
    asked.hear();
    LinxIpc endpoint(uiName());
    ASSERT_EQ(0, endpoint.Init());
    for (const unsigned size : {1u, 4u, 5u, 100u, 4096u, 48u << 10, 65532u}) {
        IpcMessage message;
        IpcMessage reply;
        Bytes bytes = pattern(size, size);
        message.Allocate(question, size, reinterpret_cast<char*>(bytes.data()));
        ASSERT_EQ(0, endpoint.Request(stateName(), message, answer, limit, &reply));
        EXPECT_TRUE(std::string(bytes.rbegin(), bytes.rend()) == textOf(reply)) << size;
        EXPECT_EQ(stateName(), reply.GetSender());
    }
    EXPECT_EQ(0, notify(endpoint, stateName(), shutdownRequest));
    EXPECT_EQ(0, asked.exitStatus());
}

TEST_F(Library, ARequestThatNobodyAnswersRunsOut) {
    Child asked(silent);
    asked.hear();
    LinxIpc endpoint(uiName());
    ASSERT_EQ(0, endpoint.Init());
    IpcMessage message;
    message.Allocate(question, 0, nullptr);
    EXPECT_EQ(ETIMEDOUT, endpoint.Request(stateName(), message, answer, 20, nullptr));
    EXPECT_EQ(0, notify(endpoint, stateName(), shutdownRequest));
    EXPECT_EQ(0, asked.exitStatus());
}

const Role bearerOfNews("Library.bearerOfNews", [](Line& parent) {
    run(parent, question, [](LinxIpc* endpoint, void*) {
        // As the supervisor of all would say it: first of somebody else, then of the peer itself.
        for (const e_Process process : {e_GpsHal, e_StateMgr}) {
            std::string payload(sizeof process, '\0');
            std::memcpy(payload.data(), &process, sizeof process);
            EXPECT_EQ(0, notify(*endpoint, uiName(), processDied, payload));
        }
    });
});

TEST_F(Library, ARequestEndsWithTheNewsOfItsPeersDeath) {
    Child asked(bearerOfNews);
    asked.hear();
    LinxIpc endpoint(uiName());
    ASSERT_EQ(0, endpoint.Init());
    IpcMessage message;
    message.Allocate(question, 0, nullptr);
    EXPECT_EQ(EHOSTUNREACH, endpoint.Request(stateName(), message, answer, limit, nullptr));
    EXPECT_EQ(0, notify(endpoint, stateName(), shutdownRequest));
    EXPECT_EQ(0, asked.exitStatus());
}

const Role talkative("Library.talkative", [](Line& parent) {
    run(parent, question, [](LinxIpc* endpoint, void*) {
        for (int i = 0; i < 3; ++i) EXPECT_EQ(0, notify(*endpoint, uiName(), news));
        EXPECT_EQ(0, notify(*endpoint, uiName(), answer, "done"));
    });
});

TEST_F(Library, AnAsynchronousRequestDispatchesWhatComesMeanwhile) {
    Child asked(talkative);
    asked.hear();
    LinxIpc endpoint(uiName());
    ASSERT_EQ(0, endpoint.Init());
    int newsHeard = 0;
    int answersHeard = 0;
    endpoint.RegisterHandler(news, count, &newsHeard);
    endpoint.RegisterHandler(answer, count, &answersHeard);
    IpcMessage message;
    message.Allocate(question, 0, nullptr);
    EXPECT_EQ(0, endpoint.AsyncRequest(stateName(), message, answer, limit, nullptr));
    EXPECT_EQ("done", textOf(endpoint.rxMessage));
    EXPECT_EQ(3, newsHeard);
    EXPECT_EQ(1, answersHeard);
    EXPECT_EQ(0, notify(endpoint, stateName(), shutdownRequest));
    EXPECT_EQ(0, asked.exitStatus());
}

constexpr unsigned relayedBytes = 48u << 10;

const Role relaying("Library.relaying", [](Line& parent) {
    LinxIpc endpoint(stateName());
    ASSERT_EQ(0, endpoint.Init());
    const auto pass = [](LinxIpc* own, void*) {
        EXPECT_EQ("source", own->relayMessage.GetSender());
        EXPECT_EQ(relayedBytes, own->relayMessage.Length());
        EXPECT_EQ(0, own->Relay(own->relayMessage, uiName()));
    };
    endpoint.RegisterRelayHandler(news, pass, nullptr);
    parent.tell();
    serve(endpoint);
});

const Role sending("Library.sending", [](Line& parent) {
    LinxIpc endpoint("source");
    ASSERT_EQ(0, endpoint.Init());
    parent.hear();
    for (uint32_t i = 0; i < 10; ++i) {
        const Bytes bytes = pattern(relayedBytes, i);
        EXPECT_EQ(0, notify(endpoint, stateName(), news, std::string(bytes.begin(), bytes.end())));
    }
});

TEST_F(Library, ALargeMessageIsRelayedWholeInTheRelayersName) {
    Child relayer(relaying);
    relayer.hear();
    Child source(sending);
    LinxIpc endpoint(uiName());
    ASSERT_EQ(0, endpoint.Init());
    source.tell();
    for (uint32_t i = 0; i < 10; ++i) {
        ASSERT_EQ(0, endpoint.Receive(limit, 0, LinxIpc::emptyString, nullptr));
        EXPECT_EQ(stateName(), endpoint.rxMessage.GetSender());
        const Bytes bytes = pattern(relayedBytes, i);
        EXPECT_TRUE(textOf(endpoint.rxMessage) == std::string(bytes.begin(), bytes.end())) << i;
    }
    EXPECT_EQ(0, source.exitStatus());
    EXPECT_EQ(0, notify(endpoint, stateName(), shutdownRequest));
    EXPECT_EQ(0, relayer.exitStatus());
}

TEST_F(Library, ASupervisedPeersEndCallsTheHandler) {
    Child mortal(silent);
    mortal.hear();
    LinxIpc endpoint(uiName());
    ASSERT_EQ(0, endpoint.Init());
    int ends = 0;
    endpoint.RegisterHandler(ended, count, &ends);
    ASSERT_EQ(0, endpoint.Attach(stateName().c_str(), ended));
    EXPECT_EQ(ETIMEDOUT, endpoint.Receive(0, 0, LinxIpc::emptyString, nullptr));
    mortal.kill9();
    EXPECT_EQ(0, endpoint.Receive(limit, 0, LinxIpc::emptyString, nullptr));
    EXPECT_EQ(1, ends);
    EXPECT_EQ(stateName(), endpoint.rxMessage.GetSender());
}

TEST_F(Library, ARestartedPeerIsSupervisedAsTheOneThatEndedUntilItIsSentTo) {
    LinxIpc endpoint(uiName());
    ASSERT_EQ(0, endpoint.Init());
    int ends = 0;
    endpoint.RegisterHandler(ended, count, &ends);
    {
        Child first(silent);
        first.hear();
        ASSERT_EQ(0, endpoint.Attach(stateName().c_str(), ended));
        first.kill9();
    }
    EXPECT_EQ(0, endpoint.Receive(limit, 0, LinxIpc::emptyString, nullptr));
    EXPECT_EQ(1, ends);

    Child second(silent);
    second.hear();
    ASSERT_EQ(0, endpoint.Attach(stateName().c_str(), ended));
    EXPECT_EQ(0, endpoint.Receive(0, 0, LinxIpc::emptyString, nullptr)) << "of the first, at once";
    EXPECT_EQ(2, ends);

    EXPECT_EQ(0, notify(endpoint, stateName(), news));
    ASSERT_EQ(0, endpoint.Attach(stateName().c_str(), ended));
    EXPECT_EQ(ETIMEDOUT, endpoint.Receive(0, 0, LinxIpc::emptyString, nullptr));
    second.kill9();
    EXPECT_EQ(0, endpoint.Receive(limit, 0, LinxIpc::emptyString, nullptr));
    EXPECT_EQ(3, ends);
    EXPECT_EQ(stateName(), endpoint.rxMessage.GetSender());
}

TEST_F(Library, HandlersThatThrowCostNoMemoryOfTheDomain) {
    LinxIpc endpoint(uiName());
    ASSERT_EQ(0, endpoint.Init());
    endpoint.RegisterHandler(
        news, [](LinxIpc*, void*) { throw std::runtime_error("of the handler"); }, nullptr);
    const std::string large(60000, 'x');
    for (int i = 0; i < 2000; ++i) {  // 120 MB: an endpoint may hold 64
        ASSERT_EQ(0, notify(endpoint, uiName(), news, large)) << i;
        ASSERT_THROW(endpoint.Receive(limit, 0, LinxIpc::emptyString, nullptr), std::runtime_error);
    }
}

TEST_F(Library, ATimerCallsItsHandler) {
    LinxIpc endpoint(uiName());
    ASSERT_EQ(0, endpoint.Init());
    int fired = 0;
    endpoint.RegisterHandler(news, count, &fired);
    endpoint.RegisterHandler(LINX_OS_TIMEOUT_SIG, count, &fired);
    for (const unsigned number : {news, 0u}) {
        ASSERT_EQ(0, endpoint.EnableTimer(5, number));
        EXPECT_EQ(0, endpoint.Receive(limit, 0, LinxIpc::emptyString, nullptr));
        EXPECT_EQ(uiName(), endpoint.rxMessage.GetSender());
    }
    EXPECT_EQ(2, fired);
    ASSERT_EQ(0, endpoint.EnableTimer(1, news));
    EXPECT_EQ(0, endpoint.DisableTimer());
    EXPECT_EQ(ETIMEDOUT, endpoint.Receive(20, 0, LinxIpc::emptyString, nullptr));
}

TEST_F(Library, ATimerOfMinusOneIsNotDueSoon) {
    LinxIpc endpoint(uiName());
    ASSERT_EQ(0, endpoint.Init());
    ASSERT_EQ(0, endpoint.EnableTimer(-1, news));
    EXPECT_EQ(ETIMEDOUT, endpoint.Receive(20, 0, LinxIpc::emptyString, nullptr));
    EXPECT_EQ(0, endpoint.DisableTimer());
}

const Role stopping("Library.stopping", [](Line&) {
    LinxIpc own(stateName());
    ASSERT_EQ(0, own.Init());
    EXPECT_EQ(0, notify(own, uiName(), shutdownRequest));
});

TEST_F(Library, AShutdownRequestIsDispatchedAndEndsTheReceive) {
    LinxIpc endpoint(uiName());
    ASSERT_EQ(0, endpoint.Init());
    Child sender(stopping);
    int calls = 0;
    endpoint.RegisterShutdown(count, &calls);
    EXPECT_EQ(ESHUTDOWN, endpoint.Receive(limit, answer, LinxIpc::emptyString, nullptr));
    EXPECT_EQ(1, calls);
    EXPECT_EQ(0, sender.exitStatus());
}

constexpr int messages = 1000;

const Role streaming("Library.streaming", [](Line&) {
    LinxIpc own(stateName());
    ASSERT_EQ(0, own.Init());
    for (int i = 0; i < messages; ++i) ASSERT_EQ(0, notify(own, uiName(), news));
    EXPECT_EQ(0, notify(own, uiName(), shutdownRequest));
});

TEST_F(Library, APollLoopHearsEveryMessage) {
    LinxIpc endpoint(uiName());
    ASSERT_EQ(0, endpoint.Init());
    Child sender(streaming);
    int heard = 0;
    endpoint.RegisterHandler(news, count, &heard);
    int result;
    do {
        pollfd readable = {endpoint.Descriptor(), POLLIN, 0};
        ASSERT_EQ(1, poll(&readable, 1, limit)) << "asleep after " << heard;
        result = endpoint.Receive(0, 0, LinxIpc::emptyString, nullptr);
    } while (result == 0 || result == ETIMEDOUT);
    EXPECT_EQ(ESHUTDOWN, result);
    EXPECT_EQ(messages, heard);
    EXPECT_EQ(0, sender.exitStatus());
}

TEST_F(Library, ANotificationFindsTheNextIncarnationOfAPeer) {
    LinxIpc endpoint(uiName());
    ASSERT_EQ(0, endpoint.Init());
    for (int i = 0; i < 5; ++i) {
        Child incarnation(capitals.in(i % 2 == 0 ? Size::other : Size::own));
        incarnation.hear();
        IpcMessage message;
        IpcMessage reply;
        char text[] = "again";
        message.Allocate(question, 5, text);
        ASSERT_EQ(0, endpoint.Request(stateName(), message, answer, limit, &reply)) << i;
        EXPECT_EQ("AGAIN", textOf(reply));
        incarnation.kill9();
    }
}

TEST_F(Library, ASupervisedPeersEndIsHeardWithItsNameAndItsNextIncarnationFound) {
    LinxIpc endpoint(uiName());
    ASSERT_EQ(0, endpoint.Init());
    for (int i = 0; i < 5; ++i) {
        Child incarnation(capitals.in(i % 2 == 0 ? Size::other : Size::own));
        incarnation.hear();
        IpcMessage message;
        IpcMessage reply;
        char text[] = "again";
        message.Allocate(question, 5, text);
        ASSERT_EQ(0, endpoint.Request(stateName(), message, answer, limit, &reply)) << i;
        EXPECT_EQ("AGAIN", textOf(reply));
        ASSERT_EQ(0, endpoint.Attach(stateName().c_str(), ended));
        incarnation.kill9();
        EXPECT_EQ(0, endpoint.Receive(limit, ended, LinxIpc::emptyString, nullptr));
        EXPECT_EQ(stateName(), endpoint.rxMessage.GetSender());
    }
}

const Role lateComer("Library.lateComer", [](Line& parent) {
    LinxIpc own(stateName());
    ASSERT_EQ(0, own.Init());
    parent.tell();
    parent.hear();
    EXPECT_EQ(0, notify(own, uiName(), news));
    EXPECT_EQ(0, own.Receive(limit, 0, LinxIpc::emptyString, nullptr));
    EXPECT_EQ("at last", textOf(own.rxMessage));
});

TEST_F(Library, APeerThatIsNotThereIsSoughtAgainOnlyAfterItSpoke) {
    LinxIpc endpoint(uiName());
    ASSERT_EQ(0, endpoint.Init());
    EXPECT_EQ(-1, notify(endpoint, stateName(), news));
    Child late(lateComer);
    late.hear();
    EXPECT_EQ(-1, notify(endpoint, stateName(), news));
    late.tell();
    do {
        ASSERT_EQ(0, endpoint.Receive(limit, 0, LinxIpc::emptyString, nullptr));
    } while (endpoint.rxMessage.MsgType() != news);  // the pending hunt was answered when the peer opened
    EXPECT_EQ(0, notify(endpoint, stateName(), news, "at last"));
    EXPECT_EQ(0, late.exitStatus());
}

}  // namespace
