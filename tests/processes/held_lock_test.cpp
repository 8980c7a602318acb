// Somebody stands still who holds the domain's lock: whoever sends and receives goes on.

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include "tests/kit/child.h"
#include "tests/kit/domain_test.h"
#include "tests/kit/signals.h"

namespace {

constexpr uint32_t item = 100;
constexpr uint32_t notice = 101;

using HeldLock = ProcessTest;

/// Holds the lock of the domain's arena, as a process that was stopped in the middle of opening an endpoint.
class Holder {
public:
    explicit Holder(const linxtest::TestDomain& domain)
        : arena_(open(domain.pathOf("arena").c_str(), O_RDWR | O_CLOEXEC)) {
        EXPECT_EQ(flock(arena_, LOCK_EX), 0);
    }
    ~Holder() { close(arena_); }
    Holder(const Holder&) = delete;
    Holder& operator=(const Holder&) = delete;

private:
    const int arena_;
};

/// Opens an endpoint that is there until the process is killed.
void linger(const std::string& name, Line& test) {
    Endpoint endpoint(name);
    test.tell(spidOf(endpoint));
    test.hear();
}

TEST_F(HeldLock, ADeathIsToldAndASendToTheDeadRefused) {
    Child peer([](Line& test) { linger("peer", test); });
    const LinxSpid spid = peer.hear();
    Child bystander([&](Line& test) {
        Endpoint endpoint("bystander");
        ASSERT_EQ(send(endpoint, spid, item), 0);
        ASSERT_NE(attach(endpoint, spid, notice), 0u);
        test.tell();
        test.hear();
        EXPECT_EQ(expectSignal(endpoint, notice).sender, spid);
        EXPECT_EQ(send(endpoint, spid, item), ECONNRESET);
        EXPECT_FALSE(receive(endpoint, 50));
        EXPECT_EQ(send(endpoint, spid, item), ECONNRESET);
        test.tell();
        test.hear();
    });
    bystander.hear();
    {
        const Holder holder(domain);
        peer.kill9();
        bystander.tell();
        bystander.hear();  // or the test has failed
    }
    bystander.tell();
    EXPECT_EQ(bystander.exitStatus(), 0);
}

TEST_F(HeldLock, ASendIsRefusedThatFindsTheDeathItself) {
    Child peer([](Line& test) { linger("peer", test); });
    const LinxSpid spid = peer.hear();
    Child bystander([&](Line& test) {
        Endpoint endpoint("bystander");
        LinxSignal* signal = linx_alloc(endpoint, 4, item);
        test.tell();
        test.hear();
        EXPECT_EQ(linx_send(endpoint, &signal, spid), -1);
        EXPECT_EQ(errno, ECONNRESET);
        test.tell();
        test.hear();
    });
    bystander.hear();
    {
        const Holder holder(domain);
        peer.kill9();
        bystander.tell();
        bystander.hear();
    }
    bystander.tell();
    EXPECT_EQ(bystander.exitStatus(), 0);
}

TEST_F(HeldLock, StrangersMeetAndTalk) {
    Child server([](Line& test) {
        Endpoint endpoint("server");
        test.tell(spidOf(endpoint));
        sendBack(endpoint, item);
    });
    const LinxSpid spid = server.hear();
    Endpoint client("client");
    ASSERT_EQ(send(client, spid, item), 0);  // leases what both need
    expectSignal(client, item);
    Endpoint stranger("stranger");
    LinxSignal* signal = linx_alloc(stranger, 4, item);
    const Holder holder(domain);
    EXPECT_EQ(hunt(client, "server"), spid);
    EXPECT_EQ(linx_send(stranger, &signal, spid), 0);
    EXPECT_EQ(expectSignal(stranger, item).sender, spid);
    server.kill9();
}

TEST_F(HeldLock, MoreThanMayBeKeptCanBeFreed) {
    Child bystander([](Line& test) {
        Endpoint endpoint("bystander");
        std::vector<LinxSignal*> signals;
        for (int i = 0; i < 200; ++i) signals.push_back(linx_alloc(endpoint, 60000, item));
        test.tell();
        test.hear();
        for (LinxSignal*& signal : signals) EXPECT_EQ(linx_free_buf(endpoint, &signal), 0);
        test.tell();
        test.hear();
    });
    bystander.hear();
    {
        const Holder holder(domain);
        bystander.tell();
        bystander.hear();
    }
    bystander.tell();
    EXPECT_EQ(bystander.exitStatus(), 0);
}

}  // namespace
