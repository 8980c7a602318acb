#include "platform/DiffTime.h"

#include <ctime>

#include "host/services/Stamp.h"

static std::uint32_t now() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::uint32_t>(now.tv_sec) * 1000U + static_cast<std::uint32_t>(now.tv_nsec / 1000000);
}

unsigned DiffTime::CalcInitialTimeout(int milliseconds) {
    return linx::stampAt(now(), milliseconds);
}

int DiffTime::ReCalcTimeout(unsigned stamp) {
    return linx::leftAt(now(), stamp);
}
