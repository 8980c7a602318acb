// One arena for processes of every word size, whichever makes it, and one that is too large for the smaller.

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <optional>

#include "host/arena/arena_file.h"
#include "host/arena/layout.h"
#include "host/system/scoped_descriptor.h"
#include "tests/kit/domain_test.h"
#include "tests/kit/role.h"
#include "tests/kit/signals.h"

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
        EXPECT_EQ(sendBytes(linx, received.sender, item, received.payload), 0);
        parent.hear();
        EXPECT_EQ(linx_close(linx), 0);
    }
});

void expectAnswer(LINX* linx) {
    const Bytes sent = pattern(100000, 1);
    EXPECT_EQ(sendBytes(linx, hunt(linx, "opener"), item, sent), 0);
    EXPECT_TRUE(sent == expectSignal(linx, item).payload);
}

const Role asker("Arena.asker", [](Line&) {
    const Endpoint endpoint("asker");
    expectAnswer(endpoint);
});

/// Lets the opener go on to its end.
void endOpener(Child& child) {
    child.tell();
    EXPECT_EQ(child.exitStatus(), 0);
}

TEST_F(Arena, IsTheSameWhicheverSizeMakesIt) {
    for (const char* const size : {"4", "100", "256", "1024"}) {
        const ScopedVariable variable("LINX_ARENA_MB", size);
        const std::string file = domain.pathOf("arena");
        {
            Endpoint endpoint("maker");
            const ScopedVariable without("LINX_ARENA_MB", nullptr);
            Child other(opener.in(Size::other));
            EXPECT_EQ(other.hear(), 0u) << size;
            expectAnswer(endpoint);
            endOpener(other);
        }
        const uint64_t madeHere = megabytes();
        ASSERT_EQ(unlink(file.c_str()), 0);
        {
            Child other(opener.in(Size::other));
            EXPECT_EQ(other.hear(), 0u) << size;
            const ScopedVariable without("LINX_ARENA_MB", nullptr);
            Endpoint endpoint("joiner");
            expectAnswer(endpoint);
            endOpener(other);
        }
        EXPECT_EQ(megabytes(), madeHere);
        EXPECT_EQ(madeHere, static_cast<uint64_t>(std::atoi(size)));
        ASSERT_EQ(unlink(file.c_str()), 0);
    }
}

TEST_F(Arena, ThatIsTooLargeForASmallProcessIsRefusedToItAlone) {
    const std::optional<Size> small = sizeWithPointersOf(4);
    const std::optional<Size> large = sizeWithPointersOf(8);
    if (!small || !large) GTEST_SKIP() << "All processes of this run are of one size.";
    for (const char* const size : {"3072", "4092", "4096", "16384"}) {
        const ScopedVariable variable("LINX_ARENA_MB", size);
        Child maker(opener.in(*large));
        EXPECT_EQ(maker.hear(), 0u) << size;
        Child refused(opener.in(*small));
        EXPECT_EQ(refused.hear(), static_cast<uint32_t>(ENOMEM)) << size;
        EXPECT_EQ(refused.exitStatus(), 0);
        Child other(asker.in(*large));
        EXPECT_EQ(other.exitStatus(), 0);
        endOpener(maker);
        EXPECT_EQ(megabytes(), static_cast<uint64_t>(std::atoi(size)));
        ASSERT_EQ(unlink(domain.pathOf("arena").c_str()), 0);
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
                EXPECT_EQ(errno, ENOMEM);
            } else {
                EXPECT_EQ(linx_close(linx), 0);
                endpoints.push_back(std::make_unique<Endpoint>("stays"));
            }
        }
        EXPECT_LT(0u, endpoints.size());
        for (const auto& endpoint : endpoints) {
            EXPECT_EQ(send(*endpoint, spidOf(*endpoint), item), 0);
            expectSignal(*endpoint, item, 0);
        }
        endpoints.clear();
        while (!domains.empty()) domains.pop_back();  // each puts back the domain before it
    }
    const linxtest::TestDomain after;
    Endpoint endpoint("after");
    EXPECT_EQ(send(before, spidOf(before), item), 0);
    expectSignal(before, item, 0);
});

TEST_F(Arena, ThatHasNoRoomBesideOthersIsRefusedUntilTheyAreLeft) {
    const std::optional<Size> small = sizeWithPointersOf(4);
    if (!small) GTEST_SKIP() << "No process of this run is small.";
    const ScopedVariable variable("LINX_ARENA_MB", "1024");
    Child child(joiner.in(*small));
    EXPECT_EQ(child.exitStatus(), 0);
}

TEST_F(Arena, OfASmallMakerIsOneThatItCanMap) {
    const std::optional<Size> small = sizeWithPointersOf(4);
    if (!small) GTEST_SKIP() << "No process of this run is small.";
    const ScopedVariable variable("LINX_ARENA_MB", "3072");
    Child maker(opener.in(*small));
    EXPECT_EQ(maker.hear(), 0u);
    Child other(asker);
    EXPECT_EQ(other.exitStatus(), 0);
    endOpener(maker);
    EXPECT_EQ(megabytes(), 1024u);
}

}  // namespace
