#ifndef LINXIPC_TESTS_TOOLS_PROGRAM_H
#define LINXIPC_TESTS_TOOLS_PROGRAM_H

#include <iosfwd>
#include <string>
#include <vector>

#include "tests/kit/program.h"

/// What a run of the program `linx` came to.
struct Outcome {
    int status = -1;  ///< of its exit, or 256 and the number of the signal that ended it
    std::string out;
    std::string err;

    bool operator==(const Outcome& other) const {
        return status == other.status && out == other.out && err == other.err;
    }
};
std::ostream& operator<<(std::ostream& stream, const Outcome& outcome);

/// Runs `linx` with these arguments to its end.
Outcome runLinx(const std::vector<std::string>& arguments, const std::string& input = {});

/// The same with a terminal as standard output, of so many columns, or that does not say; its line ends are as in a
/// file.
Outcome runLinxOnTerminal(const std::vector<std::string>& arguments, uint16_t columns = 0);

/// The status of a run whose output nobody reads any more.
int statusWithoutReader(const std::vector<std::string>& arguments);

/// A run that goes on while the test does something else; killed if it still runs when this object goes.
class LinxRun {
public:
    explicit LinxRun(const std::vector<std::string>& arguments, const std::string& input = {});
    ~LinxRun();
    LinxRun(const LinxRun&) = delete;
    LinxRun& operator=(const LinxRun&) = delete;

    /// Waits for the end.
    Outcome finish();
    pid_t pid() const { return program_.pid(); }

private:
    int in_;
    int out_;
    int err_;
    Program program_;
};

#endif
