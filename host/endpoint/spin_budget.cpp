#include "host/endpoint/spin_budget.h"

#include <sched.h>

#include "host/system/environment.h"

namespace linx {
namespace {

constexpr uint32_t defaultMicroseconds = 50;
constexpr uint32_t mostMicroseconds = 1000;

bool mayRunOnSeveralProcessors() {
    cpu_set_t processors;
    return sched_getaffinity(0, sizeof processors, &processors) != 0 || CPU_COUNT(&processors) > 1;
}

}  // namespace

SpinBudget SpinBudget::fromEnvironment() {
    const uint64_t chosen =
        uint64_t{numberFromEnvironment("LINX_SPIN_US", 0, mostMicroseconds, defaultMicroseconds)} * 1000;
    return SpinBudget(mayRunOnSeveralProcessors() ? chosen : 0, chosen);
}

}  // namespace linx
