// Senders that are killed between the push of a signal and the ring for it: whoever sleeps is woken by their ends.

#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstring>

#include "tests/kit/child.h"
#include "tests/kit/domain_test.h"
#include "tests/kit/few_descriptors.h"
#include "tests/kit/pipe_writes.h"
#include "tests/kit/signals.h"

namespace {

constexpr uint32_t item = 100;
constexpr uint32_t last = 101;

class Ringing : public ProcessTest {
    const linxtest::ScopedVariable spin_{"LINX_SPIN_US", "0"};
};

/// Receives without a limit until the last signal has come.
void sleepUntilLast(LINX* endpoint) {
    uint32_t number = 0;
    while (number != last) {
        LinxSignal* signal = nullptr;
        ASSERT_LT(0, linx_receive(endpoint, &signal, anySignal));
        number = signal->number;
        EXPECT_EQ(linx_free_buf(endpoint, &signal), 0);
    }
}

/// The same in a poll loop.
void pollUntilLast(Endpoint& endpoint) {
    std::optional<Received> received;
    while (!received || received->number != last) {
        ASSERT_TRUE(endpoint.awaitReadable());
        received = receive(endpoint, 0);
    }
}

/// A ring is a word of zeros.
bool isRing(const void* data, size_t size) {
    uint32_t record = 0;
    if (size != sizeof record) return false;
    std::memcpy(&record, data, sizeof record);
    return record == 0;
}

/// Sends the last signal, and is killed instead of ringing: whatever it has pushed by then, it does not ring for.
void sendUnrung(LINX* endpoint, LinxSpid to) {
    linxtest::atPipeWrite = [](const void* data, size_t size) {
        return isRing(data, size) ? kill(getpid(), SIGKILL) : 0;
    };
    send(endpoint, to, last);
    kill(getpid(), SIGKILL);
}

/// The sleeper says that it has been woken, and ends.
void expectWoken(Child& sleeper) {
    sleeper.hear();
    if (testing::Test::HasFailure()) return;
    EXPECT_EQ(sleeper.exitStatus(), 0);
}

TEST_F(Ringing, AKnownSendersEndWakesASleeper) {
    Child sleeper([](Line& test) {
        Endpoint endpoint("sleeper");
        test.tell(spidOf(endpoint));
        expectSignal(endpoint, item);
        test.tell();
        sleepUntilLast(endpoint);
        test.tell();
    });
    const LinxSpid spid = sleeper.hear();
    Child sender([&](Line& test) {
        Endpoint endpoint("sender");
        EXPECT_EQ(send(endpoint, spid, item), 0);
        test.hear();
        sendUnrung(endpoint, spid);
    });
    sleeper.hear();
    sleeper.awaitSleep();
    sender.tell();
    EXPECT_EQ(sender.exitStatus(), -SIGKILL);
    expectWoken(sleeper);
}

/// A client that starts before its server: its hunt is answered by the server's opening.
class EarlyClient : public Ringing, public testing::WithParamInterface<bool> {};

TEST_P(EarlyClient, IsWatchedFromItsFirstSignalOn) {
    Child client([](Line& test) {
        Endpoint endpoint("client");
        LinxSignal* none = nullptr;
        EXPECT_EQ(linx_hunt(endpoint, "server", &none), 0);
        test.tell();
        const LinxSpid server = expectSignal(endpoint, LINX_OS_HUNT_SIG).sender;
        test.hear();
        sendUnrung(endpoint, server);
    });
    client.hear();
    Child server([](Line& test) {
        Endpoint endpoint("server");
        test.tell();
        GetParam() ? pollUntilLast(endpoint) : sleepUntilLast(endpoint);
        test.tell();
    });
    server.hear();
    server.awaitSleep();
    client.tell();
    EXPECT_EQ(client.exitStatus(), -SIGKILL);
    expectWoken(server);
}

INSTANTIATE_TEST_SUITE_P(Waiting, EarlyClient, testing::Bool());

/// A server that has ceased to watch its first client, since it has not the descriptors to watch them all.
class CrowdedServer : public Ringing, public testing::WithParamInterface<bool> {
protected:
    static constexpr int crowd = 24;
};

TEST_P(CrowdedServer, IsWokenByTheEndOfAClientThatItHadToPartWith) {
    Child server([](Line& test) {
        Endpoint endpoint("server");
        endpoint.descriptor();
        const FewDescriptors few(crowd / 2);
        test.tell(spidOf(endpoint));
        for (int i = 0; i <= crowd; ++i) expectSignal(endpoint, item);
        test.tell();
        GetParam() ? pollUntilLast(endpoint) : sleepUntilLast(endpoint);
        test.tell();
    });
    const LinxSpid spid = server.hear();
    Child first([&](Line& test) {
        Endpoint endpoint("first");
        EXPECT_EQ(send(endpoint, spid, item), 0);
        test.tell();
        test.hear();
        sendUnrung(endpoint, spid);
    });
    first.hear();
    std::vector<std::unique_ptr<Endpoint>> others;
    for (int i = 0; i < crowd; ++i) {
        others.push_back(std::make_unique<Endpoint>("other" + std::to_string(i)));
        EXPECT_EQ(send(*others.back(), spid, item), 0);
    }
    server.hear();
    server.awaitSleep();
    first.tell();
    EXPECT_EQ(first.exitStatus(), -SIGKILL);
    expectWoken(server);
}

INSTANTIATE_TEST_SUITE_P(Waiting, CrowdedServer, testing::Bool());

}  // namespace
