#include "demo/report.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>

namespace demo {

std::int64_t Microseconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return std::int64_t{now.tv_sec} * 1000000 + now.tv_nsec / 1000;
}

Report MakeReport(e_Process server, Fact fact, std::uint64_t value, const std::string& text) {
    Report report{};
    report.microseconds = Microseconds();
    report.server = server;
    report.fact = fact;
    report.value = value;
    text.copy(report.text, std::min(text.size(), sizeof report.text - 1));
    return report;
}

void Reporter::Note(Fact fact, std::uint64_t value, const std::string& text) {
    const Report report = MakeReport(self, fact, value, text);
    while (write(pipe, &report, sizeof report) == -1 && errno == EINTR) {
    }
}

}  // namespace demo
