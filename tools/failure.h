#ifndef LINXIPC_TOOLS_FAILURE_H
#define LINXIPC_TOOLS_FAILURE_H

#include <stdexcept>
#include <string>

namespace tools {

/// What the program tells its caller. Scripts rely on the numbers.
enum Exit { done = 0, refused = 1, badUsage = 2, noSuchName = 3, timedOut = 4, noDomain = 5 };

/// Why a verb cannot do what it was to do, and what to do about it.
class Failure : public std::runtime_error {
public:
    Failure(Exit status, const std::string& text) : std::runtime_error(text), status_(status) {}

    Exit status() const { return status_; }

private:
    Exit status_;
};

}  // namespace tools

#endif
