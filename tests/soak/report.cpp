#include "tests/soak/report.h"

#include <sys/stat.h>

#include <algorithm>
#include <iomanip>
#include <iostream>

#include "host/arena/runs.h"
#include "tests/support/arena_validator.h"
#include "tests/support/domain_fixture.h"

namespace soak {
namespace {

// An endpoint of the library keeps the name of everybody it has heard of, until it is closed.
constexpr uint64_t bytesOfName = 96;
// What malloc keeps at hand for a thread counts as in use.
constexpr uint64_t bytesAtHand = 64u << 10;
// What has been leased stays leased. Each endpoint may come to keep a 64th of the arena for itself before it shares.
constexpr uint32_t kibKept = arenaMib * 1024 / 64;
constexpr uint32_t endpointsAtATime = workers + members + servers;

std::string nameOfResident(uint32_t resident) {
    return resident < servers ? "server" + std::to_string(resident) : "worker" + std::to_string(resident - servers);
}

/// The blocks in use that are neither lost nor still held for the last thing that was done: notices of ends to come.
uint32_t standingBlocks(const Sample& sample) {
    uint32_t held = 0;
    for (const Resources& resident : sample.resources) held += resident.held;
    return sample.usedBlocks - sample.lostBlocks - held;
}

uint64_t explainedGrowth(const Resources& earlier, const Resources& later) {
    return bytesAtHand + (later.met - earlier.met) * bytesOfName;
}

}  // namespace

Sample lookAtDomain(const std::string& directory) {
    Sample sample;
    sample.files = linxtest::namesIn(directory);
    std::sort(sample.files.begin(), sample.files.end());
    struct stat file = {};
    if (stat((directory + "/arena").c_str(), &file) == 0) sample.arenaKib = static_cast<uint32_t>(file.st_blocks / 2);
    const std::shared_ptr<linx::Domain> domain = linx::Domain::join();
    if (domain == nullptr) {
        sample.disorder = {"the domain cannot be joined"};
        return sample;
    }
    const linx::ColdSection cold(*domain);
    linxtest::ArenaValidator validator(cold);
    sample.disorder = validator.disorder();
    sample.lostBlocks = static_cast<uint32_t>(validator.losses().size());
    linx::forEachBlock(domain->arena(), [&](const linx::Block& block, linx::Ref ref, uint32_t) {
        ++sample.blocks;
        const bool isFree = block.owner.loadRelaxed() == linx::ownerFree || validator.isTravelling(ref);
        if (!isFree) ++sample.usedBlocks;
    });
    return sample;
}

void printHeading() {
    std::cout
        << "                      arena                      descriptors, KiB of heap and KiB of its own memory\n"
        << "minutes kills files   KiB blocks used lost ";
    for (uint32_t i = 0; i < residents; ++i) std::cout << std::setw(16) << nameOfResident(i);
    std::cout << std::endl;
}

void print(const Sample& sample) {
    std::cout << std::fixed << std::setprecision(1) << std::setw(7) << sample.minutes << std::setw(6) << sample.kills
              << std::setw(6) << sample.files.size() << std::setw(7) << sample.arenaKib << std::setw(6)
              << sample.blocks << std::setw(5) << sample.usedBlocks << std::setw(5) << sample.lostBlocks << ' ';
    for (const Resources& resident : sample.resources) {
        std::cout << std::setw(5) << resident.descriptors << std::setw(6) << resident.heapBytes / 1024 << std::setw(5)
                  << resident.anonymousKib;
    }
    std::cout << std::endl;
}

std::vector<std::string> compare(const Sample& earlier, const Sample& later) {
    std::vector<std::string> differences;
    const auto differ = [&](const std::string& what, uint64_t before, uint64_t after) {
        differences.push_back(what + ": " + std::to_string(before) + ", later " + std::to_string(after));
    };
    if (earlier.files != later.files) differ("files", earlier.files.size(), later.files.size());
    const uint32_t lost = later.lostBlocks - earlier.lostBlocks;
    if (lost > later.kills - earlier.kills) differ("lost blocks", earlier.lostBlocks, later.lostBlocks);
    if (standingBlocks(earlier) != standingBlocks(later)) {
        differ("blocks in use", standingBlocks(earlier), standingBlocks(later));
    }
    if (later.arenaKib > earlier.arenaKib + endpointsAtATime * kibKept) {
        differ("KiB of the arena", earlier.arenaKib, later.arenaKib);
    }
    for (uint32_t i = 0; i < residents; ++i) {
        const Resources& before = earlier.resources[i];
        const Resources& after = later.resources[i];
        const std::string who = " of " + nameOfResident(i);
        if (before.descriptors != after.descriptors)
            differ("descriptors" + who, before.descriptors, after.descriptors);
        if (after.heapBytes > before.heapBytes + explainedGrowth(before, after)) {
            differ("bytes of heap" + who, before.heapBytes, after.heapBytes);
        }
    }
    return differences;
}

}  // namespace soak
