// More peers than a process has descriptors: those go that were used longest ago, and some are left for everything
// else.

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "tests/kit/child.h"
#include "tests/kit/domain_test.h"
#include "tests/kit/signals.h"

namespace {

constexpr uint32_t item = 100;
constexpr rlim_t mostDescriptors = 128;
constexpr uint32_t clients = 150;
constexpr uint32_t colleagues = 3;

using ManyPeers = ProcessTest;

/// Whether this process holds the doorbell of an endpoint open.
bool holdsDoorbell(const std::string& domain, LinxSpid spid) {
    char name[16];
    std::snprintf(name, sizeof name, "bell.%08x", spid);
    const std::vector<std::string> open = linxtest::namesIn("/proc/self/fd");
    return std::any_of(open.begin(), open.end(), [&](const std::string& descriptor) {
        char target[256] = {};
        const ssize_t length = readlink(("/proc/self/fd/" + descriptor).c_str(), target, sizeof target - 1);
        return length > 0 && target == domain + "/" + name;
    });
}

/// How many files the process may open yet.
uint32_t descriptorsLeft() {
    std::vector<int> open;
    for (int file = 0; (file = ::open("/dev/null", O_RDONLY | O_CLOEXEC)) != -1;) open.push_back(file);
    for (const int file : open) close(file);
    return static_cast<uint32_t>(open.size());
}

/// Endpoints that say once that they are there, and one after the other ask for an answer later.
void crowd(Line& parent) {
    std::vector<std::unique_ptr<Endpoint>> endpoints;
    for (uint32_t i = 0; i < clients; ++i) {
        parent.hear();
        endpoints.push_back(std::make_unique<Endpoint>("client" + std::to_string(i)));
        EXPECT_EQ(send(*endpoints.back(), hunt(*endpoints.back(), "server"), item, {i}), 0);
        parent.tell();
    }
    for (uint32_t i = 0; i < clients; ++i) EXPECT_EQ(expectSignal(*endpoints[i], item).word(), i);
}

void allowDescriptors(rlim_t count) {
    rlimit limit = {};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    limit.rlim_cur = count;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
}

TEST_F(ManyPeers, LeaveTheServerItsColleaguesAndDescriptorsForOtherThings) {
    // Opened first, as the servers of a device are.
    Child others([](Line& parent) {
        std::vector<std::unique_ptr<Endpoint>> endpoints;
        for (uint32_t i = 0; i < colleagues; ++i) {
            endpoints.push_back(std::make_unique<Endpoint>("colleague" + std::to_string(i)));
        }
        parent.tell();
        for (uint32_t i = 0; i < clients; ++i) expectSignal(*endpoints[i % colleagues], item);
    });
    others.hear();
    Child server([&](Line& parent) {
        allowDescriptors(mostDescriptors);
        Endpoint endpoint("server");
        parent.tell();
        std::vector<LinxSpid> known;
        for (uint32_t i = 0; i < colleagues; ++i) known.push_back(hunt(endpoint, "colleague" + std::to_string(i)));
        std::vector<LinxSpid> heard;
        for (uint32_t i = 0; i < clients; ++i) {
            heard.push_back(expectSignal(endpoint, item).sender);
            const LinxSpid colleague = known[i % colleagues];
            EXPECT_TRUE(holdsDoorbell(domain.path(), colleague));
            EXPECT_EQ(send(endpoint, colleague, item), 0);
            parent.tell();
        }
        // One that found the signal while it spun has the introduction still to read.
        EXPECT_FALSE(receive(endpoint, 0).has_value());
        EXPECT_FALSE(holdsDoorbell(domain.path(), heard.front()));
        EXPECT_TRUE(holdsDoorbell(domain.path(), heard.back()));
        EXPECT_GE(descriptorsLeft(), mostDescriptors / 8);
        {
            Endpoint second("second");
            EXPECT_EQ(hunt(endpoint, "second"), spidOf(second));
        }
        for (uint32_t i = 0; i < clients; ++i) EXPECT_EQ(send(endpoint, heard[i], item, {i}), 0);
        EXPECT_GE(descriptorsLeft(), mostDescriptors / 8);
    });
    server.hear();
    Child child(crowd);
    for (uint32_t i = 0; i < clients; ++i) {
        child.tell();
        child.hear();
        server.hear();  // one client at a time: a crowd that comes at once may rightly push a colleague out
    }
    EXPECT_EQ(others.exitStatus(), 0);
    EXPECT_EQ(child.exitStatus(), 0);
    EXPECT_EQ(server.exitStatus(), 0);
}

}  // namespace
