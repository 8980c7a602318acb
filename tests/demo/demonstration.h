#ifndef LINXIPC_TESTS_DEMO_DEMONSTRATION_H
#define LINXIPC_TESTS_DEMO_DEMONSTRATION_H

#include <optional>
#include <string>
#include <vector>

#include "tests/kit/program.h"

/// One run of the demonstration as a process. The test process takes over what the launcher leaves orphaned, so that
/// no server can hide. What is still there at the end of the test is killed.
class Demonstration {
public:
    enum class Output { pipe, terminal };

    /// Where `arguments` have no time limit, it is one that no run reaches which does not hang.
    explicit Demonstration(std::vector<std::string> arguments, Output kind = Output::pipe);
    ~Demonstration();
    Demonstration(const Demonstration&) = delete;
    Demonstration& operator=(const Demonstration&) = delete;

    /// Reads on until the output contains `text`. False when it ends before.
    bool waitFor(const std::string& text);

    /// Closes the output, as a reader does that has seen enough.
    void stopReading();

    /// Reads all output and waits for the launcher. Its exit status, or 256 and the number of the signal that ended
    /// it.
    int finish();

    /// What has been read so far, from standard output and standard error.
    const std::string& text() const { return text_; }

    /// The text of each line, as far as read.
    std::vector<std::string> lines() const;

    pid_t launcher() const { return launcher_->pid(); }

    /// The pid that the output gives for a server; 0 when it gives none.
    pid_t server(const std::string& name) const;

    /// The directory of the run's domain; empty before it was told.
    std::string domain() const;

    /// Whether the directory of the domain is there.
    bool domainExists() const;

private:
    bool readMore();

    std::optional<Program> launcher_;
    int output_ = -1;
    std::string text_;
};

/// Whether this process has children left, its own or taken over. Does not wait.
bool processesLeft();

/// Waits until this process has no child left.
void waitForAllProcesses();

#endif
