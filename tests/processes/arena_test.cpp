// One arena for processes of every word size, whichever makes it, and one that is too large for the smaller.

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <optional>

#include "host/arena/arena_file.h"
#include "host/arena/layout.h"
#include "host/system/scoped_descriptor.h"
#include "tests/processes/support/process_test.h"
#include "tests/processes/support/role.h"
#include "tests/processes/support/signals.h"

namespace {

using linxtest::ScopedVariable;

constexpr uint32_t item = 100;

class Arena : public ProcessTest {
protected:
    /// Size of the pool in MiB, 0 when there is no arena.
    uint64_t megabytes() const {
        const linx::ScopedDescriptor file(open(domain.pathOf("arena").c_str(), O_RDWR | O_CLOEXEC));
        return linx::checkArenaFile(file.get()) * uint64_t{linx::pageBytes} >> 20;
    }
};

/// Says the errno of opening, and if there is none goes on to answer one signal.
const Role opener("Arena.opener", [](Line& parent) {
    LINX* linx = linx_open("opener", 0, nullptr);
    parent.tell(linx == nullptr ? static_cast<uint32_t>(errno) : 0);
    if (linx != nullptr) {
        const Received received = expectSignal(linx, item);
        EXPECT_EQ(0, sendBytes(linx, received.sender, item, received.payload));
        parent.hear();
        EXPECT_EQ(0, linx_close(linx));
    }
});

void expectAnswer(LINX* linx) {
    const Bytes sent = pattern(100000, 1);
    EXPECT_EQ(0, sendBytes(linx, hunt(linx, "opener"), item, sent));
    EXPECT_TRUE(sent == expectSignal(linx, item).payload);
}

const Role asker("Arena.asker", [](Line&) {
    const Endpoint endpoint("asker");
    expectAnswer(endpoint);
});

/// Lets the opener go on to its end.
void endOpener(Child& child) {
    child.tell();
    EXPECT_EQ(0, child.exitStatus());
}

TEST_F(Arena, IsTheSameWhicheverSizeMakesIt) {
    for (const char* const size : {"4", "100", "256", "1024"}) {
        const ScopedVariable variable("LINX_ARENA_MB", size);
        const std::string file = domain.pathOf("arena");
        {
            Endpoint endpoint("maker");
            const ScopedVariable without("LINX_ARENA_MB", nullptr);
            Child other(opener.in(Size::other));
            EXPECT_EQ(0u, other.hear()) << size;
            expectAnswer(endpoint);
            endOpener(other);
        }
        const uint64_t madeHere = megabytes();
        ASSERT_EQ(0, unlink(file.c_str()));
        {
            Child other(opener.in(Size::other));
            EXPECT_EQ(0u, other.hear()) << size;
            const ScopedVariable without("LINX_ARENA_MB", nullptr);
            Endpoint endpoint("joiner");
            expectAnswer(endpoint);
            endOpener(other);
        }
        EXPECT_EQ(madeHere, megabytes());
        EXPECT_EQ(static_cast<uint64_t>(std::atoi(size)), madeHere);
        ASSERT_EQ(0, unlink(file.c_str()));
    }
}

TEST_F(Arena, ThatIsTooLargeForASmallProcessIsRefusedToItAlone) {
    const std::optional<Size> small = sizeWithPointersOf(4);
    const std::optional<Size> large = sizeWithPointersOf(8);
    if (!small || !large) GTEST_SKIP() << "All processes of this run are of one size.";
    for (const char* const size : {"3072", "4092", "4096", "16384"}) {
        const ScopedVariable variable("LINX_ARENA_MB", size);
        Child maker(opener.in(*large));
        EXPECT_EQ(0u, maker.hear()) << size;
        Child refused(opener.in(*small));
        EXPECT_EQ(static_cast<uint32_t>(ENOMEM), refused.hear()) << size;
        EXPECT_EQ(0, refused.exitStatus());
        Child other(asker.in(*large));
        EXPECT_EQ(0, other.exitStatus());
        endOpener(maker);
        EXPECT_EQ(static_cast<uint64_t>(std::atoi(size)), megabytes());
        ASSERT_EQ(0, unlink(domain.pathOf("arena").c_str()));
    }
}

/// Joins domains until no more of them have room in the address space.
const Role joiner("Arena.joiner", [](Line&) {
    Endpoint before("before");
    {
        std::vector<std::unique_ptr<linxtest::TestDomain>> domains;
        std::vector<std::unique_ptr<Endpoint>> endpoints;
        for (LINX* linx = before; linx != nullptr;) {
            ASSERT_GT(4u, endpoints.size());
            domains.push_back(std::make_unique<linxtest::TestDomain>());
            linx = linx_open("another", 0, nullptr);
            if (linx == nullptr) {
                EXPECT_EQ(ENOMEM, errno);
            } else {
                EXPECT_EQ(0, linx_close(linx));
                endpoints.push_back(std::make_unique<Endpoint>("stays"));
            }
        }
        EXPECT_LT(0u, endpoints.size());
        for (const auto& endpoint : endpoints) {
            EXPECT_EQ(0, send(*endpoint, spidOf(*endpoint), item));
            expectSignal(*endpoint, item, 0);
        }
        endpoints.clear();
        while (!domains.empty()) domains.pop_back();  // each puts back the domain before it
    }
    const linxtest::TestDomain after;
    Endpoint endpoint("after");
    EXPECT_EQ(0, send(before, spidOf(before), item));
    expectSignal(before, item, 0);
});

TEST_F(Arena, ThatHasNoRoomBesideOthersIsRefusedUntilTheyAreLeft) {
    const std::optional<Size> small = sizeWithPointersOf(4);
    if (!small) GTEST_SKIP() << "No process of this run is small.";
    const ScopedVariable variable("LINX_ARENA_MB", "1024");
    Child child(joiner.in(*small));
    EXPECT_EQ(0, child.exitStatus());
}

TEST_F(Arena, OfASmallMakerIsOneThatItCanMap) {
    const std::optional<Size> small = sizeWithPointersOf(4);
    if (!small) GTEST_SKIP() << "No process of this run is small.";
    const ScopedVariable variable("LINX_ARENA_MB", "3072");
    Child maker(opener.in(*small));
    EXPECT_EQ(0u, maker.hear());
    Child other(asker);
    EXPECT_EQ(0, other.exitStatus());
    endOpener(maker);
    EXPECT_EQ(1024u, megabytes());
}

}  // namespace
