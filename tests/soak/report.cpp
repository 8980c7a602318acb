#include "tests/soak/report.h"

#include <sys/stat.h>

#include <algorithm>
#include <iomanip>
#include <iostream>

#include "host/arena/domain.h"
#include "host/arena/runs.h"
#include "host/arena/slot_table.h"
#include "host/debug/validate.h"
#include "host/recovery/domain_lock.h"
#include "tests/kit/domain.h"

namespace soak {
namespace {

// An endpoint of the library keeps the name of everybody it has heard of until it is closed: an entry of a map each.
constexpr uint64_t bytesOfName = sizeof(std::map<unsigned, std::string>::value_type) + 5 * sizeof(void*);

/// How much more may be in use.
struct Room {
    uint64_t heapBytes;
    uint32_t arenaKib;
};

// At first, tables grow to what they have room for. In each process: a pointer for every slot of the domain, up to
// twice; what malloc keeps at hand. In the arena: the slots, and what each endpoint may keep, a 256th of the arena,
// and as much again that others have given back to it.
constexpr uint32_t kibKept = 2 * arenaMib * 1024 / 256;
constexpr uint32_t endpointsAtATime = workers + members + servers;
constexpr uint64_t bytesAtHand = 64u << 10;
constexpr Room roomAtFirst = {2 * linx::slotCount * sizeof(void*) + bytesAtHand,
                              linx::slotCount * sizeof(linx::Slot) / 1024 + endpointsAtATime* kibKept};

// Later they do not; another crowd of large signals may need some memory yet.
constexpr Room roomLater = {bytesAtHand, 4 * 1024};
constexpr double minutesToFill = 8;

std::string nameOfResident(uint32_t resident) {
    return resident < servers ? "server" + std::to_string(resident) : "worker" + std::to_string(resident - servers);
}

/// The blocks in use that are neither lost nor still held for what was done: notices of ends to come. An endpoint of
/// the library does not give back the answer to a search that it no longer waits for.
uint32_t standingBlocks(const Sample& sample) {
    uint32_t held = 0;
    for (const Resources& resident : sample.resources) held += resident.held;
    return sample.usedBlocks - sample.lostBlocks - sample.lateAnswers - held;
}

uint64_t bytesOfNames(const Resources& earlier, const Resources& later) {
    return (later.met - earlier.met) * bytesOfName;
}

std::vector<std::string> compare(const Sample& earlier, const Sample& later, const Room& room) {
    std::vector<std::string> differences;
    const auto differ = [&](const std::string& what, uint64_t before, uint64_t after) {
        differences.push_back(what + ": " + std::to_string(before) + ", later " + std::to_string(after));
    };
    if (earlier.files != later.files) differ("files", earlier.files.size(), later.files.size());
    if (later.lostBlocks != 0) differ("lost blocks", earlier.lostBlocks, later.lostBlocks);
    if (later.smallerShares > later.kills) differ("smaller shares", earlier.smallerShares, later.smallerShares);
    if (standingBlocks(earlier) != standingBlocks(later)) {
        differ("blocks in use", standingBlocks(earlier), standingBlocks(later));
    }
    if (later.lateAnswers > later.vainSearches) differ("answers to searches", later.vainSearches, later.lateAnswers);
    if (later.arenaKib > earlier.arenaKib + room.arenaKib) {
        differ("KiB of the arena", earlier.arenaKib, later.arenaKib);
    }
    for (uint32_t i = 0; i < residents; ++i) {
        const Resources& before = earlier.resources[i];
        const Resources& after = later.resources[i];
        const std::string who = " of " + nameOfResident(i);
        if (before.descriptors != after.descriptors)
            differ("descriptors" + who, before.descriptors, after.descriptors);
        if (after.heapBytes > before.heapBytes + bytesOfNames(before, after) + room.heapBytes) {
            differ("bytes of heap" + who, before.heapBytes, after.heapBytes);
        }
    }
    return differences;
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
        sample.disorder = "the domain cannot be joined";
        return sample;
    }
    const linx::DomainLock lock(*domain);
    const linx::debug::Findings found = linx::debug::validate(domain->arena(), linx::debug::Grade::full);
    sample.disorder = found.broken;
    sample.smallerShares = static_cast<uint32_t>(found.smallerShares.size());
    sample.blocks = found.census.blocks;
    sample.lostBlocks = found.census.lost;
    sample.usedBlocks = found.census.owned + found.census.lost;
    linx::forEachBlock(domain->arena(), [&](linx::BlockRef block) {
        const linx::OwnerWord owner = block->owner.loadRelaxed();
        const bool isOwned = !linx::isInFlight(owner) && linx::isOpen(domain->arena(), linx::spidOf(owner));
        if (isOwned && block->signal.number == LINX_OS_HUNT_SIG) ++sample.lateAnswers;
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

std::vector<std::string> compare(const std::vector<Sample>& samples) {
    std::vector<std::string> differences;
    for (const Sample& sample : samples) {
        const std::vector<std::string> some = compare(samples.front(), sample, roomAtFirst);
        differences.insert(differences.end(), some.begin(), some.end());
    }
    const Sample& middle = samples[samples.size() / 2];
    if (middle.minutes < minutesToFill) return differences;
    const std::vector<std::string> some = compare(middle, samples.back(), roomLater);
    differences.insert(differences.end(), some.begin(), some.end());
    return differences;
}

}  // namespace soak
