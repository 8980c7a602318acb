#include "host/endpoint/looking_budget.h"

#include <sched.h>

#include <cstdlib>

namespace linx {
namespace {

constexpr unsigned long defaultMicroseconds = 50;
constexpr unsigned long largestMicroseconds = 1000;

unsigned long chosenMicroseconds() {
    const char* text = std::getenv("LINX_SPIN_US");
    if (text == nullptr || *text == '\0') return defaultMicroseconds;
    char* end;
    const unsigned long chosen = std::strtoul(text, &end, 10);
    if (*end != '\0') return defaultMicroseconds;
    return chosen < largestMicroseconds ? chosen : largestMicroseconds;
}

bool mayRunOnSeveralProcessors() {
    cpu_set_t processors;
    return sched_getaffinity(0, sizeof processors, &processors) != 0 || CPU_COUNT(&processors) > 1;
}

}  // namespace

LookingBudget LookingBudget::fromEnvironment() {
    const uint64_t chosen = uint64_t{chosenMicroseconds()} * 1000;
    return LookingBudget(mayRunOnSeveralProcessors() ? chosen : 0, chosen);
}

}  // namespace linx
