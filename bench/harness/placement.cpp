#include "bench/harness/placement.h"

#include <sched.h>

#include <vector>

#include "bench/harness/check.h"

namespace bench {

namespace {

const std::vector<int>& cores() {
    static const std::vector<int> cores = [] {
        cpu_set_t allowed;
        check(sched_getaffinity(0, sizeof allowed, &allowed) == 0, "sched_getaffinity");
        std::vector<int> found;
        for (int core = 0; core < CPU_SETSIZE && found.size() < 2; ++core) {
            if (CPU_ISSET(core, &allowed)) found.push_back(core);
        }
        return found;
    }();
    return cores;
}

void stayOn(const std::vector<int>& cores) {
    cpu_set_t wanted;
    CPU_ZERO(&wanted);
    for (const int core : cores) CPU_SET(core, &wanted);
    check(sched_setaffinity(0, sizeof wanted, &wanted) == 0, "sched_setaffinity");
}

}  // namespace

std::string nameOf(Placement placement) {
    switch (placement) {
        case Placement::apart:
            return "two cores, one each";
        case Placement::both:
            return "two cores";
        case Placement::one:
            break;
    }
    return "one core";
}

void confine(Placement placement) {
    stayOn(placement == Placement::one ? std::vector<int>{cores().front()} : cores());
}

void settle(Placement placement, unsigned process) {
    if (placement == Placement::apart) stayOn({cores()[process % cores().size()]});
}

}  // namespace bench
