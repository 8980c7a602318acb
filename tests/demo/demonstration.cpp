#include "tests/demo/demonstration.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <sstream>

namespace {

/// Seconds in which a run ends, however busy the machine; one that hangs tells so before CTest ends the test.
constexpr const char* ample = "100";

struct Ends {
    int read = -1;
    int write = -1;
};

Ends openPipe() {
    int ends[2] = {-1, -1};
    if (pipe2(ends, O_CLOEXEC) == -1) std::abort();
    return {ends[0], ends[1]};
}

Ends openTerminal() {
    const int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (master == -1 || grantpt(master) == -1 || unlockpt(master) == -1) std::abort();
    return {master, open(ptsname(master), O_RDWR | O_NOCTTY | O_CLOEXEC)};
}

/// Starts the program with its standard output and standard error at `output`, in a process group of its own and with
/// the signals as a shell has them.
pid_t spawn(const std::vector<std::string>& arguments, int output) {
    std::vector<char*> argv;
    for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output, STDERR_FILENO);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t ordinary;
    sigemptyset(&ordinary);
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGPIPE}) sigaddset(&ordinary, number);
    posix_spawnattr_setsigdefault(&attributes, &ordinary);
    posix_spawnattr_setpgroup(&attributes, 0);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);

    pid_t pid = -1;
    if (posix_spawn(&pid, LINX_DEMO, &actions, &attributes, argv.data(), environ) != 0) std::abort();
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    return pid;
}

int waitForExit(pid_t pid) {
    int status = 0;
    while (waitpid(pid, &status, 0) == -1 && errno == EINTR) {
    }
    return WIFSIGNALED(status) ? 256 + WTERMSIG(status) : WEXITSTATUS(status);
}

}  // namespace

Demonstration::Demonstration(std::vector<std::string> arguments, Output kind) {
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    if (std::find(arguments.begin(), arguments.end(), "--limit") == arguments.end()) {
        arguments.insert(arguments.end(), {"--limit", ample});
    }
    arguments.insert(arguments.begin(), "linx-demo");
    const Ends ends = kind == Output::terminal ? openTerminal() : openPipe();
    output_ = ends.read;
    launcher_ = spawn(arguments, ends.write);
    close(ends.write);
}

Demonstration::~Demonstration() {
    if (output_ != -1) close(output_);
    if (launcher_ > 0) {
        kill(launcher_, SIGKILL);
        waitForExit(launcher_);
    }
    waitForAllProcesses();
    std::error_code error;
    if (!domain().empty()) std::filesystem::remove_all(domain(), error);
}

bool Demonstration::waitFor(const std::string& wanted) {
    while (text_.find(wanted) == std::string::npos) {
        if (!readMore()) return false;
    }
    return true;
}

void Demonstration::stopReading() {
    close(output_);
    output_ = -1;
}

int Demonstration::finish() {
    while (readMore()) {
    }
    const int status = waitForExit(launcher_);
    launcher_ = -1;
    return status;
}

std::vector<std::string> Demonstration::lines() const {
    std::vector<std::string> lines;
    std::istringstream stream(text_);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

pid_t Demonstration::server(const std::string& name) const {
    const std::string before = "starts " + name + ", process ";
    const auto at = text_.find(before);
    return at == std::string::npos ? 0 : static_cast<pid_t>(std::atoi(text_.c_str() + at + before.size()));
}

std::string Demonstration::domain() const {
    const std::string before = "domain /";
    const auto at = text_.find(before);
    if (at == std::string::npos) return {};
    const auto begin = at + before.size() - 1;
    return text_.substr(begin, text_.find(',', begin) - begin);
}

bool Demonstration::domainExists() const {
    return std::filesystem::exists(domain());
}

bool Demonstration::readMore() {
    if (output_ == -1) return false;
    char bytes[4096];
    ssize_t count = -1;
    do count = read(output_, bytes, sizeof bytes);
    while (count == -1 && errno == EINTR);
    if (count <= 0) return false;
    text_.append(bytes, static_cast<std::size_t>(count));
    return true;
}

bool processesLeft() {
    return waitpid(-1, nullptr, WNOHANG) != -1 || errno != ECHILD;
}

void waitForAllProcesses() {
    while (waitpid(-1, nullptr, 0) != -1 || errno == EINTR) {
    }
}
