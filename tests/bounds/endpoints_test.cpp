// A domain with as many endpoints as it can hold.

#include <algorithm>
#include <cerrno>

#include "tests/bounds/many_descriptors.h"
#include "tests/kit/child.h"
#include "tests/kit/domain_test.h"
#include "tests/kit/in_time.h"
#include "tests/kit/signals.h"

namespace {

using FullDomain = ProcessTest;

constexpr uint32_t mostEndpoints = 8191;
constexpr uint32_t few = 40;
constexpr uint32_t item = 100;

/// Opens endpoints until it has `wanted` or is refused, tells how many and why no more, and closes one when told to.
Child::Body opener(uint32_t wanted) {
    return [wanted](Line& parent) {
        const auto affordable = static_cast<uint32_t>(std::min<rlim_t>(allowManyDescriptors() / 2 - 50, wanted));
        std::vector<LINX*> endpoints;
        LINX* last = nullptr;
        do {
            const std::string name = std::to_string(getpid()) + "." + std::to_string(endpoints.size());
            last = linx_open(name.c_str(), 0, nullptr);
            if (last != nullptr) endpoints.push_back(last);
        } while (last != nullptr && endpoints.size() < affordable);
        parent.tell(last == nullptr ? static_cast<uint32_t>(errno) : 0);
        parent.tell(static_cast<uint32_t>(endpoints.size()));
        parent.hear();
        EXPECT_EQ(linx_close(endpoints.back()), 0);
        parent.tell();
        parent.hear();
    };
}

int errorOfOpen() {
    LINX* linx = linx_open("one more", 0, nullptr);
    if (linx == nullptr) return errno;
    linx_close(linx);
    return 0;
}

bool isOpenedInTime(const std::string& name, std::vector<LINX*>& opened) {
    return comesTrue([&] {
        LINX* linx = linx_open(name.c_str(), 0, nullptr);
        if (linx != nullptr)
            opened.push_back(linx);
        else
            EXPECT_EQ(errno, ENOSPC);
        return linx != nullptr;
    });
}

TEST_F(FullDomain, TakesNoMoreUntilAnEndpointEndsOrDies) {
    std::vector<std::unique_ptr<Child>> openers;
    uint32_t opened = 0;
    while (opened < mostEndpoints - few) {
        openers.push_back(std::make_unique<Child>(opener(mostEndpoints - few - opened)));
        EXPECT_EQ(openers.back()->hear(), 0u);
        const uint32_t more = openers.back()->hear();
        ASSERT_GT(more, 0u);
        opened += more;
    }
    Child last(opener(mostEndpoints));
    EXPECT_EQ(last.hear(), static_cast<uint32_t>(ENOSPC));
    EXPECT_EQ(last.hear(), few);
    EXPECT_EQ(errorOfOpen(), ENOSPC);
    last.tell();
    last.hear();
    {
        Endpoint endpoint("endpoint");
        EXPECT_EQ(errorOfOpen(), ENOSPC);
        EXPECT_EQ(send(endpoint, spidOf(endpoint), item), 0);
        expectSignal(endpoint, item, 0);
        const std::string other = std::to_string(openers.front()->pid()) + ".0";
        EXPECT_EQ(nameOf(endpoint, hunt(endpoint, other)), other);
        last.kill9();  // nobody has talked to its endpoints, nor sees them die
        std::vector<LINX*> instead;
        for (uint32_t i = 1; i < few; ++i) EXPECT_TRUE(isOpenedInTime(std::to_string(i), instead));
        EXPECT_EQ(errorOfOpen(), ENOSPC);
        for (LINX* linx : instead) EXPECT_EQ(linx_close(linx), 0);
    }
    EXPECT_EQ(errorOfOpen(), 0);
}

}  // namespace
