#include "tests/soak/resources.h"

#include <malloc.h>

#include <fstream>
#include <string>

#include "tests/kit/domain.h"

namespace soak {
namespace {

uint32_t statusKib(const std::string& field) {
    std::ifstream status("/proc/self/status");
    std::string word;
    uint32_t kib = 0;
    while (status >> word) {
        if (word == field + ":" && status >> kib) return kib;
    }
    return 0;
}

}  // namespace

Resources countResources() {
    Resources now = {};
    now.residentKib = statusKib("VmRSS");
    now.anonymousKib = statusKib("RssAnon");
    now.descriptors = static_cast<uint32_t>(linxtest::TestDomain::openFileCount());
    const struct mallinfo2 heap = mallinfo2();
    now.heapBytes = heap.uordblks + heap.hblkhd;
    return now;
}

}  // namespace soak
