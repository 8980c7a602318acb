#include "tests/tools/program.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <ostream>

namespace {

/// A file without a name, with this in it.
int memoryFile(const std::string& content = {}) {
    const int file = memfd_create("test", MFD_CLOEXEC);
    if (file == -1 || pwrite(file, content.data(), content.size(), 0) != static_cast<ssize_t>(content.size()))
        abort();
    return file;
}

std::string readAndClose(int file) {
    std::string text;
    char bytes[4096];
    lseek(file, 0, SEEK_SET);
    for (ssize_t count; (count = read(file, bytes, sizeof bytes)) > 0;)
        text.append(bytes, static_cast<size_t>(count));
    close(file);
    return text;
}

pid_t spawn(const std::vector<std::string>& arguments, int in, int out, int err) {
    std::vector<char*> argv = {const_cast<char*>("linx")};
    for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, out, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, err, STDERR_FILENO);
    pid_t pid = -1;
    if (posix_spawn(&pid, LINX_PROGRAM, &actions, nullptr, argv.data(), environ) != 0) abort();
    posix_spawn_file_actions_destroy(&actions);
    return pid;
}

int awaitExit(pid_t pid) {
    int status = 0;
    while (waitpid(pid, &status, 0) == -1 && errno == EINTR) {
    }
    return WIFSIGNALED(status) ? 256 + WTERMSIG(status) : WEXITSTATUS(status);
}

}  // namespace

std::ostream& operator<<(std::ostream& stream, const Outcome& outcome) {
    return stream << "status " << outcome.status << "\n--- out\n"
                  << outcome.out << "--- err\n"
                  << outcome.err << "---";
}

Outcome runLinx(const std::vector<std::string>& arguments, const std::string& input) {
    const int in = memoryFile(input);
    const int out = memoryFile();
    const int err = memoryFile();
    Outcome outcome;
    outcome.status = awaitExit(spawn(arguments, in, out, err));
    close(in);
    outcome.out = readAndClose(out);
    outcome.err = readAndClose(err);
    return outcome;
}

Outcome runLinxOnTerminal(const std::vector<std::string>& arguments) {
    const int terminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (terminal == -1 || grantpt(terminal) == -1 || unlockpt(terminal) == -1) abort();
    const int out = open(ptsname(terminal), O_RDWR | O_NOCTTY | O_CLOEXEC);
    const int in = memoryFile();
    const int err = memoryFile();
    const pid_t pid = spawn(arguments, in, out, err);
    close(out);
    close(in);
    Outcome outcome;
    outcome.out = readAndClose(terminal);
    outcome.out.erase(std::remove(outcome.out.begin(), outcome.out.end(), '\r'), outcome.out.end());
    outcome.status = awaitExit(pid);
    outcome.err = readAndClose(err);
    return outcome;
}

int statusWithoutReader(const std::vector<std::string>& arguments) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) == -1) abort();
    close(ends[0]);
    const int in = memoryFile();
    const int err = memoryFile();
    const int status = awaitExit(spawn(arguments, in, ends[1], err));
    for (const int file : {in, err, ends[1]}) close(file);
    return status;
}

LinxRun::LinxRun(const std::vector<std::string>& arguments) : out_(memoryFile()), err_(memoryFile()) {
    const int in = memoryFile();
    pid_ = spawn(arguments, in, out_, err_);
    close(in);
}

LinxRun::~LinxRun() {
    if (pid_ == -1) return;
    kill(pid_, SIGKILL);
    finish();
}

Outcome LinxRun::finish() {
    Outcome outcome;
    outcome.status = awaitExit(pid_);
    pid_ = -1;
    outcome.out = readAndClose(out_);
    outcome.err = readAndClose(err_);
    return outcome;
}
