#include "demo/report.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>

namespace demo {

std::int64_t microseconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return std::int64_t{now.tv_sec} * 1000000 + now.tv_nsec / 1000;
}

Report makeReport(e_Process server, Fact fact, std::uint64_t value, const std::string& text) {
    Report report{};
    report.microseconds = microseconds();
    report.server = server;
    report.fact = fact;
    report.value = value;
    text.copy(report.text, std::min(text.size(), sizeof report.text - 1));
    return report;
}

void Reporter::note(Fact fact, std::uint64_t value, const std::string& text) {
    const Report report = makeReport(self_, fact, value, text);
    while (write(pipe_, &report, sizeof report) == -1 && errno == EINTR) {
    }
}

}  // namespace demo
