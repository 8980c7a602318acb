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

Ends OpenPipe() {
    int ends[2] = {-1, -1};
    if (pipe2(ends, O_CLOEXEC) == -1) std::abort();
    return {ends[0], ends[1]};
}

Ends OpenTerminal() {
    const int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (master == -1 || grantpt(master) == -1 || unlockpt(master) == -1) std::abort();
    return {master, open(ptsname(master), O_RDWR | O_NOCTTY | O_CLOEXEC)};
}

/// Starts the program with its standard output and standard error at `output`, in a process group of its own and with
/// the signals as a shell has them.
pid_t Spawn(const std::vector<std::string>& arguments, int output) {
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

int WaitForExit(pid_t pid) {
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
    const Ends ends = kind == Output::terminal ? OpenTerminal() : OpenPipe();
    output = ends.read;
    launcher = Spawn(arguments, ends.write);
    close(ends.write);
}

Demonstration::~Demonstration() {
    if (output != -1) close(output);
    if (launcher > 0) {
        kill(launcher, SIGKILL);
        WaitForExit(launcher);
    }
    WaitForAllProcesses();
    std::error_code error;
    if (!Domain().empty()) std::filesystem::remove_all(Domain(), error);
}

bool Demonstration::WaitFor(const std::string& wanted) {
    while (text.find(wanted) == std::string::npos) {
        if (!ReadMore()) return false;
    }
    return true;
}

void Demonstration::StopReading() {
    close(output);
    output = -1;
}

int Demonstration::Finish() {
    while (ReadMore()) {
    }
    const int status = WaitForExit(launcher);
    launcher = -1;
    return status;
}

std::vector<std::string> Demonstration::Lines() const {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

pid_t Demonstration::Server(const std::string& name) const {
    const std::string before = "starts " + name + ", process ";
    const auto at = text.find(before);
    return at == std::string::npos ? 0 : static_cast<pid_t>(std::atoi(text.c_str() + at + before.size()));
}

std::string Demonstration::Domain() const {
    const std::string before = "domain /";
    const auto at = text.find(before);
    if (at == std::string::npos) return {};
    const auto begin = at + before.size() - 1;
    return text.substr(begin, text.find(',', begin) - begin);
}

bool Demonstration::DomainExists() const {
    return std::filesystem::exists(Domain());
}

bool Demonstration::ReadMore() {
    if (output == -1) return false;
    char bytes[4096];
    ssize_t count = -1;
    do count = read(output, bytes, sizeof bytes);
    while (count == -1 && errno == EINTR);
    if (count <= 0) return false;
    text.append(bytes, static_cast<std::size_t>(count));
    return true;
}

bool ProcessesLeft() {
    return waitpid(-1, nullptr, WNOHANG) != -1 || errno != ECHILD;
}

void WaitForAllProcesses() {
    while (waitpid(-1, nullptr, 0) != -1 || errno == EINTR) {
    }
}
