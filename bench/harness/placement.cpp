#include "bench/harness/placement.h"

#include <sched.h>

#include <vector>

#include "bench/harness/check.h"

namespace bench {

namespace {

const std::vector<int>& Cores() {
    static const std::vector<int> cores = [] {
        cpu_set_t allowed;
        Check(sched_getaffinity(0, sizeof allowed, &allowed) == 0, "sched_getaffinity");
        std::vector<int> found;
        for (int core = 0; core < CPU_SETSIZE && found.size() < 2; ++core) {
            if (CPU_ISSET(core, &allowed)) found.push_back(core);
        }
        return found;
    }();
    return cores;
}

void StayOn(const std::vector<int>& cores) {
    cpu_set_t wanted;
    CPU_ZERO(&wanted);
    for (const int core : cores) CPU_SET(core, &wanted);
    Check(sched_setaffinity(0, sizeof wanted, &wanted) == 0, "sched_setaffinity");
}

}  // namespace

std::string NameOf(Placement placement) {
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

void Confine(Placement placement) {
    StayOn(placement == Placement::one ? std::vector<int>{Cores().front()} : Cores());
}

void Settle(Placement placement, unsigned process) {
    if (placement == Placement::apart) StayOn({Cores()[process % Cores().size()]});
}

}  // namespace bench
