// As many hunts for absent names as can be pending.

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <vector>

#include "tests/kit/child.h"
#include "tests/kit/domain_test.h"
#include "tests/kit/in_time.h"
#include "tests/kit/signals.h"

namespace {

using FullHunts = ProcessTest;

constexpr uint32_t mostHunts = 4096;
constexpr uint32_t mostOfOne = mostHunts / 4;
constexpr uint32_t own = 10;
constexpr uint32_t item = 100;

int errorOfHunt(LINX* linx, const std::string& name) {
    LinxSignal* signal = linx_alloc(linx, sizeof(LinxSignal), item);
    const int result = linx_hunt(linx, name.c_str(), &signal) == 0 ? 0 : errno;
    EXPECT_EQ(signal, nullptr);
    return result;
}

/// Hunts for one name until it is refused, tells how often it was not, and goes on when told to.
void greedyHunter(Line& parent) {
    Endpoint endpoint("greedy" + std::to_string(getpid()));
    uint32_t count = 0;
    while (errorOfHunt(endpoint, "sought by many") == 0) ++count;
    EXPECT_EQ(errno, ENOSPC);
    parent.tell(count);
    parent.hear();
    for (uint32_t i = 0; i < count; ++i) expectSignal(endpoint, item);
    expectNothing(endpoint);
}

/// All pending hunts are taken: nobody may have more than a quarter.
class Hunter : public FullHunts {
protected:
    void SetUp() override {
        endpoint = std::make_unique<Endpoint>("endpoint");
        for (uint32_t i = 0; i < own; ++i) ASSERT_EQ(errorOfHunt(*endpoint, "sought by one"), 0);
        for (uint32_t left = mostHunts - own; left != 0; left -= std::min(left, mostOfOne)) {
            greedy.push_back(std::make_unique<Child>(greedyHunter));
            EXPECT_EQ(greedy.back()->hear(), std::min(left, mostOfOne));
        }
        EXPECT_EQ(errorOfHunt(*endpoint, "absent"), ENOSPC);
    }
    void TearDown() override {
        {
            const Endpoint sought("sought by one");
            for (uint32_t i = 0; i < own; ++i) expectSignal(*endpoint, item);
        }
        expectNothing(*endpoint);
        endpoint.reset();
        greedy.clear();
        FullHunts::TearDown();
    }

    std::unique_ptr<Endpoint> endpoint;
    std::vector<std::unique_ptr<Child>> greedy;
};

TEST_F(Hunter, IsToldThatThereIsNoRoomAndAllOthersAreAnswered) {
    EXPECT_EQ(hunt(*endpoint, "endpoint"), spidOf(*endpoint));  // who is there is found all the same
    const Endpoint sought("sought by many");
    for (const auto& child : greedy) child->tell();
    for (const auto& child : greedy) EXPECT_EQ(child->exitStatus(), 0);
    EXPECT_EQ(errorOfHunt(*endpoint, "absent"), 0);
    const Endpoint absent("absent");
    EXPECT_EQ(expectSignal(*endpoint, item, 0).sender, spidOf(absent));
}

TEST_F(Hunter, GetsTheRoomOfTheDead) {
    for (const auto& child : greedy) child->kill9();  // nobody has talked to them, nor sees them die
    EXPECT_TRUE(comesTrue([&] { return errorOfHunt(*endpoint, "absent") == 0; }));
    const Endpoint absent("absent");
    EXPECT_EQ(expectSignal(*endpoint, item, 0).sender, spidOf(absent));
}

}  // namespace
