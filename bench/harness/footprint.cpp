#include "bench/harness/footprint.h"

#include <filesystem>
#include <fstream>

namespace bench {

Footprint footprintOf(const std::string& process) {
    Footprint footprint;
    std::ifstream sums("/proc/" + process + "/smaps_rollup");
    for (std::string key, rest; sums >> key && std::getline(sums, rest);) {
        if (key == "Anonymous:") footprint.own = std::stod(rest) * 1024;
        if (key == "Pss_Shmem:") footprint.shared = std::stod(rest) * 1024;
    }
    const std::filesystem::directory_iterator open("/proc/" + process + "/fd");
    footprint.descriptors = static_cast<double>(std::distance(begin(open), end(open)));
    return footprint;
}

}  // namespace bench
