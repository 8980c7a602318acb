#include "bench/scenarios/crowd.h"

#include <unistd.h>

#include <algorithm>
#include <memory>

#include "ipc/linxIpc.h"

namespace bench {

namespace {

constexpr unsigned perHolder = 250;

[[noreturn]] void hold(unsigned first, unsigned end, const Barrier& allOpen) {
    std::vector<std::unique_ptr<LinxIpc>> endpoints;
    for (unsigned i = first; i < end; ++i) {
        endpoints.push_back(std::make_unique<LinxIpc>(crowdName(i)));
        expect(endpoints.back()->Init() == 0, "an endpoint of the crowd does not open");
    }
    allOpen.wait();
    for (;;) pause();
}

}  // namespace

std::string crowdName(unsigned endpoint) {
    return "crowd." + std::to_string(endpoint);
}

unsigned holdersFor(unsigned endpoints) {
    return (endpoints + perHolder - 1) / perHolder;
}

void addCrowd(unsigned endpoints, const Barrier& allOpen, std::vector<Member>& members) {
    for (unsigned first = 0; first < endpoints; first += perHolder) {
        const unsigned end = std::min(first + perHolder, endpoints);
        members.push_back({Member::Part::servant, [first, end, &allOpen] { hold(first, end, allOpen); }});
    }
}

}  // namespace bench
