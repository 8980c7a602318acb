#ifndef LINXIPC_TESTS_KIT_PROGRAM_H
#define LINXIPC_TESTS_KIT_PROGRAM_H

#include <sys/types.h>

#include <string>
#include <vector>

/// A program that a test runs with the signals as a shell has them. Killed if it still runs when this object goes.
class Program {
public:
    /// What it has as its standard streams; those of the test where there is nothing else.
    struct Streams {
        int in = -1;
        int out = -1;
        int err = -1;
    };
    enum class Group { ofTheTest, own };

    Program(const std::string& path, const std::vector<std::string>& arguments, Streams streams,
            Group group = Group::ofTheTest);
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    /// Waits for the end. The exit status, or 256 and the number of the signal that ended it.
    int awaitEnd();

    /// -1 once the end has been waited for.
    pid_t pid() const { return pid_; }

private:
    pid_t pid_ = -1;
};

/// The two ends of what a program writes into and its test reads.
struct Ends {
    int read;
    int write;
};
Ends openPipe();
Ends openTerminal();

#endif
