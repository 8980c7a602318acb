#ifndef LINXIPC_TESTS_SIMULATE_TRACE_H
#define LINXIPC_TESTS_SIMULATE_TRACE_H

#include <cstdarg>
#include <cstdio>
#include <deque>
#include <stdexcept>
#include <string>

#include "link/session/events.h"

namespace simulate {

/// A claim that does not hold.
struct Violation : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// What happened last, kept only when it is wanted.
class Trace {
public:
    explicit Trace(bool isWanted) : isWanted_(isWanted) {}

    void setTime(linx::link::Time now) { now_ = now; }

    __attribute__((format(printf, 2, 3))) void add(const char* format, ...) {
        if (!isWanted_) return;
        char text[200];
        va_list arguments;
        va_start(arguments, format);
        std::vsnprintf(text, sizeof text, format, arguments);
        va_end(arguments);
        char line[240];
        std::snprintf(line, sizeof line, "%10.3f ms  %s", static_cast<double>(now_.count()) / 1000, text);
        lines_.push_back(line);
        if (lines_.size() > mostLines) lines_.pop_front();
    }
    const std::deque<std::string>& lines() const { return lines_; }

private:
    static constexpr size_t mostLines = 400;

    const bool isWanted_;
    linx::link::Time now_ = {};
    std::deque<std::string> lines_;
};

}  // namespace simulate

#endif
