#ifndef LINXIPC_TESTS_SOAK_REPORT_H
#define LINXIPC_TESTS_SOAK_REPORT_H

#include <array>
#include <string>
#include <vector>

#include "tests/soak/board.h"

namespace soak {

/// What was counted while nobody was at work.
struct Sample {
    double minutes = 0;
    uint32_t kills = 0;
    std::array<Resources, residents> resources{};
    std::vector<std::string> files;  ///< in the domain's directory
    uint32_t arenaKib = 0;           ///< that the arena's file occupies
    uint32_t blocks = 0;             ///< that have been leased
    uint32_t usedBlocks = 0;         ///< that are neither free nor given back
    uint32_t lostBlocks = 0;         ///< those of them that nobody will find again
    uint32_t smallerShares = 0;      ///< endpoints that count more memory than they have, by a death
    uint32_t lateAnswers = 0;        ///< those of them that answer, or are to answer, a search that was in vain
    uint32_t vainSearches = 0;       ///< that there may have been
    std::string disorder;
};

/// Looks at the domain of $LINX_DOMAIN. REQUIRES that none of its endpoints does anything.
Sample lookAtDomain(const std::string& directory);

void printHeading();
void print(const Sample& sample);

/// What in a run's samples is not as it was at first, or, in the second half of a run of more than a quarter of an
/// hour, goes on growing. REQUIRES two samples at least.
std::vector<std::string> compare(const std::vector<Sample>& samples);

}  // namespace soak

#endif
