// A doorbell that takes no more bytes.

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "tests/bounds/many_descriptors.h"
#include "tests/kit/child.h"
#include "tests/kit/domain_test.h"
#include "tests/kit/signals.h"

namespace {

using FullDoorbell = ProcessTest;

constexpr uint32_t item = 100;
constexpr uint32_t end = 101;

/// Counts signals until `end`, as often as it is told to, and is silent in between.
void counter(Line& parent) {
    Endpoint endpoint("counter");
    parent.tell(spidOf(endpoint));
    while (parent.hear() != 0) {
        uint32_t count = 0;
        EXPECT_TRUE(endpoint.awaitReadable());
        for (std::optional<Received> received; (received = receive(endpoint, patience));) {
            if (received->number == end) break;
            ++count;
        }
        expectNothing(endpoint);
        expectNothing(endpoint);  // ends of senders are noticed one receive later
        EXPECT_FALSE(endpoint.readable());
        parent.tell(count);
    }
}

TEST_F(FullDoorbell, WakesAllTheSame) {
    Child receiver(counter);
    const LinxSpid to = receiver.hear();
    char name[16];
    std::snprintf(name, sizeof name, "bell.%08x", to);
    Endpoint endpoint("endpoint");
    for (const size_t piece : {1u, 4u, 3u}) {
        receiver.stop();
        const int doorbell = open(domain.pathOf(name).c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
        while (write(doorbell, "\377\377\377\377", piece) > 0) {
        }
        EXPECT_EQ(errno, EAGAIN);
        EXPECT_EQ(close(doorbell), 0);
        for (int i = 0; i < 5; ++i) ASSERT_EQ(send(endpoint, to, item), 0);
        ASSERT_EQ(send(endpoint, to, end), 0);
        receiver.cont();
        receiver.tell(1);
        EXPECT_EQ(receiver.hear(), 5u);
    }
    receiver.tell(0);
    EXPECT_EQ(receiver.exitStatus(), 0);
}

TEST_F(FullDoorbell, OfMoreSendersThanCanIntroduceThemselvesHearsThemAll) {
    constexpr uint32_t senders = 1100;  // each says its name with four bytes of the doorbell's 4096
    rlimit before = {};
    getrlimit(RLIMIT_NOFILE, &before);
    if (allowManyDescriptors() < 4 * senders) GTEST_SKIP() << "needs " << 4 * senders << " descriptors";
    Child receiver(counter);
    const LinxSpid to = receiver.hear();
    {
        std::vector<std::unique_ptr<Endpoint>> endpoints;
        for (uint32_t i = 0; i < senders; ++i) endpoints.push_back(std::make_unique<Endpoint>(std::to_string(i)));
        for (int round = 0; round < 2; ++round) {
            receiver.stop();
            for (const auto& endpoint : endpoints) ASSERT_EQ(send(*endpoint, to, item), 0);
            ASSERT_EQ(send(*endpoints.back(), to, end), 0);
            receiver.cont();
            receiver.tell(1);
            EXPECT_EQ(receiver.hear(), senders);
        }
    }
    receiver.tell(0);
    EXPECT_EQ(receiver.exitStatus(), 0);
    setrlimit(RLIMIT_NOFILE, &before);
}

}  // namespace
