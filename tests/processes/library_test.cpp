// The library's endpoints in processes of their own.

#include <syslog.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "directory/LinxServerNameList.h"
#include "ipc/linxIpc.h"
#include "tests/kit/readable.h"
#include "tests/kit/role_test.h"
#include "tests/kit/signals.h"

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

/// Where they are found: the tests are the one, and have the other played.
std::string ui() {
    return here(uiName());
}
std::string state() {
    return there(stateName());
}

/// Returns when the process has opened the state manager's endpoint, and this side knows of it.
LinxSpid awaitOpen(const Child& child) {
    return met(child.hear(), state());
}

class Library : public RoleTest {
protected:
    void TearDown() override {
        closelog();
        RoleTest::TearDown();
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

/// Receives and dispatches until it is asked to shut down.
void serve(LinxIpc& endpoint) {
    int result;
    while ((result = endpoint.Receive(limit, 0, LinxIpc::emptyString, nullptr)) == 0) {
    }
    EXPECT_EQ(result, ESHUTDOWN);
}

void answerInCapitals(LinxIpc* endpoint, void*) {
    std::string text = textOf(endpoint->rxMessage);
    for (char& letter : text) letter = static_cast<char>(letter - 'a' + 'A');
    EXPECT_EQ(notify(*endpoint, endpoint->rxMessage.GetSender(), answer, text), 0);
}

/// A server under the name of the state manager, which says when it is open.
void run(Line& parent, unsigned type, void (*handler)(LinxIpc*, void*)) {
    LinxIpc endpoint(stateName());
    ASSERT_EQ(endpoint.Init(), 0);
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
    ASSERT_EQ(endpoint.Init(), 0);
    parent.tell();
    EXPECT_EQ(endpoint.Receive(limit, 0, LinxIpc::emptyString, nullptr), 0);
    EXPECT_EQ(endpoint.rxMessage.MsgType(), news);
    EXPECT_EQ(endpoint.rxMessage.GetSender(), ui());
    EXPECT_EQ(textOf(endpoint.rxMessage), "the sun shines");
});

TEST_F(Library, ANotificationArrivesWithItsSendersName) {
    Child receiver(notified);
    awaitOpen(receiver);
    LinxIpc endpoint(uiName());
    ASSERT_EQ(endpoint.Init(), 0);
    EXPECT_EQ(notify(endpoint, state(), news, "the sun shines"), 0);
    EXPECT_EQ(receiver.exitStatus(), 0);
}

TEST_F(Library, ARequestIsAnsweredByAHandler) {
    Child asked(capitals);
    awaitOpen(asked);
    LinxIpc endpoint(uiName());
    ASSERT_EQ(endpoint.Init(), 0);
    for (int i = 0; i < 100; ++i) {
        IpcMessage message;
        IpcMessage reply;
        char text[] = "word";
        message.Allocate(question, 4, text);
        ASSERT_EQ(endpoint.Request(state(), message, answer, limit, &reply), 0);
        EXPECT_EQ(textOf(reply), "WORD");
        EXPECT_EQ(reply.GetSender(), state());
    }
    EXPECT_EQ(notify(endpoint, state(), shutdownRequest), 0);
    EXPECT_EQ(asked.exitStatus(), 0);
}

const Role reversing("Library.reversing", [](Line& parent) {
    run(parent, question, [](LinxIpc* endpoint, void*) {
        const std::string text = textOf(endpoint->rxMessage);
        EXPECT_EQ(notify(*endpoint, endpoint->rxMessage.GetSender(), answer, {text.rbegin(), text.rend()}), 0);
    });
});

TEST_F(Library, RequestsOfEverySizeAreAnswered) {
    Child asked(reversing);
    awaitOpen(asked);
    LinxIpc endpoint(uiName());
    ASSERT_EQ(endpoint.Init(), 0);
    for (const unsigned size : {1u, 4u, 5u, 100u, 4096u, 48u << 10, 65532u}) {
        IpcMessage message;
        IpcMessage reply;
        Bytes bytes = pattern(size, size);
        message.Allocate(question, size, reinterpret_cast<char*>(bytes.data()));
        ASSERT_EQ(endpoint.Request(state(), message, answer, limit, &reply), 0);
        EXPECT_TRUE(std::string(bytes.rbegin(), bytes.rend()) == textOf(reply)) << size;
        EXPECT_EQ(reply.GetSender(), state());
    }
    EXPECT_EQ(notify(endpoint, state(), shutdownRequest), 0);
    EXPECT_EQ(asked.exitStatus(), 0);
}

TEST_F(Library, ARequestThatNobodyAnswersRunsOut) {
    Child asked(silent);
    awaitOpen(asked);
    LinxIpc endpoint(uiName());
    ASSERT_EQ(endpoint.Init(), 0);
    IpcMessage message;
    message.Allocate(question, 0, nullptr);
    EXPECT_EQ(endpoint.Request(state(), message, answer, 20, nullptr), ETIMEDOUT);
    EXPECT_EQ(notify(endpoint, state(), shutdownRequest), 0);
    EXPECT_EQ(asked.exitStatus(), 0);
}

const Role bearerOfNews("Library.bearerOfNews", [](Line& parent) {
    run(parent, question, [](LinxIpc* endpoint, void*) {
        // As the supervisor of all would say it: first of somebody else, then of the peer itself.
        for (const e_Process process : {e_GpsHal, e_StateMgr}) {
            std::string payload(sizeof process, '\0');
            std::memcpy(payload.data(), &process, sizeof process);
            EXPECT_EQ(notify(*endpoint, ui(), processDied, payload), 0);
        }
    });
});

TEST_F(Library, ARequestEndsWithTheNewsOfItsPeersDeath) {
    Child asked(bearerOfNews);
    awaitOpen(asked);
    LinxIpc endpoint(uiName());
    ASSERT_EQ(endpoint.Init(), 0);
    IpcMessage message;
    message.Allocate(question, 0, nullptr);
    EXPECT_EQ(endpoint.Request(state(), message, answer, limit, nullptr), EHOSTUNREACH);
    EXPECT_EQ(notify(endpoint, state(), shutdownRequest), 0);
    EXPECT_EQ(asked.exitStatus(), 0);
}

const Role talkative("Library.talkative", [](Line& parent) {
    run(parent, question, [](LinxIpc* endpoint, void*) {
        for (int i = 0; i < 3; ++i) EXPECT_EQ(notify(*endpoint, ui(), news), 0);
        EXPECT_EQ(notify(*endpoint, ui(), answer, "done"), 0);
    });
});

TEST_F(Library, AnAsynchronousRequestDispatchesWhatComesMeanwhile) {
    Child asked(talkative);
    awaitOpen(asked);
    LinxIpc endpoint(uiName());
    ASSERT_EQ(endpoint.Init(), 0);
    int newsHeard = 0;
    int answersHeard = 0;
    endpoint.RegisterHandler(news, count, &newsHeard);
    endpoint.RegisterHandler(answer, count, &answersHeard);
    IpcMessage message;
    message.Allocate(question, 0, nullptr);
    EXPECT_EQ(endpoint.AsyncRequest(state(), message, answer, limit, nullptr), 0);
    EXPECT_EQ(textOf(endpoint.rxMessage), "done");
    EXPECT_EQ(newsHeard, 3);
    EXPECT_EQ(answersHeard, 1);
    EXPECT_EQ(notify(endpoint, state(), shutdownRequest), 0);
    EXPECT_EQ(asked.exitStatus(), 0);
}

constexpr unsigned relayedBytes = 48u << 10;

const Role relaying("Library.relaying", [](Line& parent) {
    LinxIpc endpoint(stateName());
    ASSERT_EQ(endpoint.Init(), 0);
    const auto pass = [](LinxIpc* own, void*) {
        EXPECT_EQ(own->relayMessage.GetSender(), there("source"));
        EXPECT_EQ(own->relayMessage.Length(), relayedBytes);
        EXPECT_EQ(own->Relay(own->relayMessage, ui()), 0);
    };
    endpoint.RegisterRelayHandler(news, pass, nullptr);
    parent.tell();
    serve(endpoint);
});

const Role sending("Library.sending", [](Line& parent) {
    LinxIpc endpoint("source");
    ASSERT_EQ(endpoint.Init(), 0);
    parent.hear();
    for (uint32_t i = 0; i < 10; ++i) {
        const Bytes bytes = pattern(relayedBytes, i);
        EXPECT_EQ(notify(endpoint, state(), news, std::string(bytes.begin(), bytes.end())), 0);
    }
});

TEST_F(Library, ALargeMessageIsRelayedWholeInTheRelayersName) {
    Child relayer(relaying);
    awaitOpen(relayer);
    Child source(sending);
    LinxIpc endpoint(uiName());
    ASSERT_EQ(endpoint.Init(), 0);
    source.tell();
    for (uint32_t i = 0; i < 10; ++i) {
        ASSERT_EQ(endpoint.Receive(limit, 0, LinxIpc::emptyString, nullptr), 0);
        EXPECT_EQ(endpoint.rxMessage.GetSender(), state());
        const Bytes bytes = pattern(relayedBytes, i);
        EXPECT_TRUE(textOf(endpoint.rxMessage) == std::string(bytes.begin(), bytes.end())) << i;
    }
    EXPECT_EQ(source.exitStatus(), 0);
    EXPECT_EQ(notify(endpoint, state(), shutdownRequest), 0);
    EXPECT_EQ(relayer.exitStatus(), 0);
}

TEST_F(Library, ASupervisedPeersEndCallsTheHandler) {
    Child mortal(silent);
    awaitOpen(mortal);
    LinxIpc endpoint(uiName());
    ASSERT_EQ(endpoint.Init(), 0);
    int ends = 0;
    endpoint.RegisterHandler(ended, count, &ends);
    ASSERT_EQ(endpoint.Attach(state().c_str(), ended), 0);
    EXPECT_EQ(endpoint.Receive(0, 0, LinxIpc::emptyString, nullptr), ETIMEDOUT);
    mortal.kill9();
    EXPECT_EQ(endpoint.Receive(limit, 0, LinxIpc::emptyString, nullptr), 0);
    EXPECT_EQ(ends, 1);
    EXPECT_EQ(endpoint.rxMessage.GetSender(), state());
}

TEST_F(Library, ARestartedPeerIsSupervisedAsTheOneThatEndedUntilItIsSentTo) {
    LinxIpc endpoint(uiName());
    ASSERT_EQ(endpoint.Init(), 0);
    int ends = 0;
    endpoint.RegisterHandler(ended, count, &ends);
    {
        Child first(silent);
        awaitOpen(first);
        ASSERT_EQ(endpoint.Attach(state().c_str(), ended), 0);
        first.kill9();
    }
    EXPECT_EQ(endpoint.Receive(limit, 0, LinxIpc::emptyString, nullptr), 0);
    EXPECT_EQ(ends, 1);

    Child second(silent);
    awaitOpen(second);
    ASSERT_EQ(endpoint.Attach(state().c_str(), ended), 0);
    EXPECT_EQ(endpoint.Receive(0, 0, LinxIpc::emptyString, nullptr), 0) << "of the first, at once";
    EXPECT_EQ(ends, 2);

    EXPECT_EQ(notify(endpoint, state(), news), 0);
    ASSERT_EQ(endpoint.Attach(state().c_str(), ended), 0);
    EXPECT_EQ(endpoint.Receive(0, 0, LinxIpc::emptyString, nullptr), ETIMEDOUT);
    second.kill9();
    EXPECT_EQ(endpoint.Receive(limit, 0, LinxIpc::emptyString, nullptr), 0);
    EXPECT_EQ(ends, 3);
    EXPECT_EQ(endpoint.rxMessage.GetSender(), state());
}

TEST_F(Library, HandlersThatThrowCostNoMemoryOfTheDomain) {
    LinxIpc endpoint(uiName());
    ASSERT_EQ(endpoint.Init(), 0);
    endpoint.RegisterHandler(
        news, [](LinxIpc*, void*) { throw std::runtime_error("of the handler"); }, nullptr);
    const std::string large(60000, 'x');
    for (int i = 0; i < 2000; ++i) {  // 120 MB: an endpoint may hold 64
        ASSERT_EQ(notify(endpoint, uiName(), news, large), 0) << i;
        ASSERT_THROW(endpoint.Receive(limit, 0, LinxIpc::emptyString, nullptr), std::runtime_error);
    }
}

TEST_F(Library, ATimerCallsItsHandler) {
    LinxIpc endpoint(uiName());
    ASSERT_EQ(endpoint.Init(), 0);
    int fired = 0;
    endpoint.RegisterHandler(news, count, &fired);
    endpoint.RegisterHandler(LINX_OS_TIMEOUT_SIG, count, &fired);
    for (const unsigned number : {news, 0u}) {
        ASSERT_EQ(endpoint.EnableTimer(5, number), 0);
        EXPECT_EQ(endpoint.Receive(limit, 0, LinxIpc::emptyString, nullptr), 0);
        EXPECT_EQ(endpoint.rxMessage.GetSender(), ui());
    }
    EXPECT_EQ(fired, 2);
    ASSERT_EQ(endpoint.EnableTimer(1, news), 0);
    EXPECT_EQ(endpoint.DisableTimer(), 0);
    EXPECT_EQ(endpoint.Receive(20, 0, LinxIpc::emptyString, nullptr), ETIMEDOUT);
}

TEST_F(Library, ATimerOfMinusOneIsNotDueSoon) {
    LinxIpc endpoint(uiName());
    ASSERT_EQ(endpoint.Init(), 0);
    ASSERT_EQ(endpoint.EnableTimer(-1, news), 0);
    EXPECT_EQ(endpoint.Receive(20, 0, LinxIpc::emptyString, nullptr), ETIMEDOUT);
    EXPECT_EQ(endpoint.DisableTimer(), 0);
}

const Role stopping("Library.stopping", [](Line&) {
    LinxIpc own(stateName());
    ASSERT_EQ(own.Init(), 0);
    met(0, ui());
    EXPECT_EQ(notify(own, ui(), shutdownRequest), 0);
});

TEST_F(Library, AShutdownRequestIsDispatchedAndEndsTheReceive) {
    LinxIpc endpoint(uiName());
    ASSERT_EQ(endpoint.Init(), 0);
    Child sender(stopping);
    int calls = 0;
    endpoint.RegisterShutdown(count, &calls);
    EXPECT_EQ(endpoint.Receive(limit, answer, LinxIpc::emptyString, nullptr), ESHUTDOWN);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(sender.exitStatus(), 0);
}

constexpr int messages = 1000;

const Role streaming("Library.streaming", [](Line&) {
    LinxIpc own(stateName());
    ASSERT_EQ(own.Init(), 0);
    met(0, ui());
    for (int i = 0; i < messages; ++i) ASSERT_EQ(notify(own, ui(), news), 0);
    EXPECT_EQ(notify(own, ui(), shutdownRequest), 0);
});

TEST_F(Library, APollLoopHearsEveryMessage) {
    LinxIpc endpoint(uiName());
    ASSERT_EQ(endpoint.Init(), 0);
    Child sender(streaming);
    int heard = 0;
    endpoint.RegisterHandler(news, count, &heard);
    int result;
    do {
        ASSERT_TRUE(isReadable(endpoint.Descriptor(), limit)) << "asleep after " << heard;
        result = endpoint.Receive(0, 0, LinxIpc::emptyString, nullptr);
    } while (result == 0 || result == ETIMEDOUT);
    EXPECT_EQ(result, ESHUTDOWN);
    EXPECT_EQ(heard, messages);
    EXPECT_EQ(sender.exitStatus(), 0);
}

/// One size after the other; those behind a link are of one.
Size sizeInTurn(int incarnation) {
    return incarnation % 2 == 0 || areApart() ? Size::other : Size::own;
}

/// That whoever is called so now answers a request.
void expectServed(LinxIpc& endpoint) {
    IpcMessage message;
    IpcMessage reply;
    char text[] = "again";
    message.Allocate(question, 5, text);
    ASSERT_EQ(endpoint.Request(state(), message, answer, limit, &reply), 0);
    EXPECT_EQ(textOf(reply), "AGAIN");
}

TEST_F(Library, ANotificationFindsTheNextIncarnationOfAPeer) {
    LinxIpc endpoint(uiName());
    ASSERT_EQ(endpoint.Init(), 0);
    for (int i = 0; i < 5; ++i) {
        Child incarnation(capitals.in(sizeInTurn(i)));
        const LinxSpid spid = awaitOpen(incarnation);
        ASSERT_NO_FATAL_FAILURE(expectServed(endpoint)) << i;
        incarnation.kill9();
        learnEndOf(spid);
    }
}

TEST_F(Library, ASupervisedPeersEndIsHeardWithItsNameAndItsNextIncarnationFound) {
    LinxIpc endpoint(uiName());
    ASSERT_EQ(endpoint.Init(), 0);
    for (int i = 0; i < 5; ++i) {
        Child incarnation(capitals.in(sizeInTurn(i)));
        awaitOpen(incarnation);
        ASSERT_NO_FATAL_FAILURE(expectServed(endpoint)) << i;
        ASSERT_EQ(endpoint.Attach(state().c_str(), ended), 0);
        incarnation.kill9();
        EXPECT_EQ(endpoint.Receive(limit, ended, LinxIpc::emptyString, nullptr), 0);
        EXPECT_EQ(endpoint.rxMessage.GetSender(), state());
    }
}

const Role lateComer("Library.lateComer", [](Line& parent) {
    LinxIpc own(stateName());
    ASSERT_EQ(own.Init(), 0);
    met(0, ui());
    parent.tell();
    parent.hear();
    EXPECT_EQ(notify(own, ui(), news), 0);
    EXPECT_EQ(own.Receive(limit, 0, LinxIpc::emptyString, nullptr), 0);
    EXPECT_EQ(textOf(own.rxMessage), "at last");
});

TEST_F(Library, APeerThatIsNotThereIsSoughtAgainOnlyAfterItSpoke) {
    LinxIpc endpoint(uiName());
    ASSERT_EQ(endpoint.Init(), 0);
    EXPECT_EQ(notify(endpoint, state(), news), -1);
    Child late(lateComer);
    late.hear();
    EXPECT_EQ(notify(endpoint, state(), news), -1);
    late.tell();
    do {
        ASSERT_EQ(endpoint.Receive(limit, 0, LinxIpc::emptyString, nullptr), 0);
    } while (endpoint.rxMessage.MsgType() != news);  // the pending hunt was answered when the peer opened
    EXPECT_EQ(notify(endpoint, state(), news, "at last"), 0);
    EXPECT_EQ(late.exitStatus(), 0);
}

}  // namespace
