#include "bench/harness/service.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <sstream>

#include "bench/harness/check.h"

namespace bench {

namespace {

constexpr int patience = 10000;  // milliseconds

[[noreturn]] void become(std::vector<std::string>& command, Placement placement, int output) {
    confine(placement);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    dup2(output, STDOUT_FILENO);
    dup2(output, STDERR_FILENO);
    std::vector<char*> arguments;
    for (std::string& argument : command) arguments.push_back(argument.data());
    arguments.push_back(nullptr);
    execvp(arguments.front(), arguments.data());
    _exit(127);
}

}  // namespace

std::string findProgram(const std::string& program) {
    const char* path = std::getenv("PATH");
    std::istringstream directories(path != nullptr ? path : "");
    for (std::string directory; std::getline(directories, directory, ':');) {
        const std::string file = directory + '/' + program;
        if (access(file.c_str(), X_OK) == 0) return file;
    }
    return "";
}

Service::Service(std::vector<std::string> command, Placement placement, const std::string& sign) {
    start(command, placement);
    try {
        awaitSign(sign);
    } catch (const Failure&) {
        end();
        throw Failure(command.front() + " did not start");
    }
}

Service::~Service() {
    end();
}

void Service::start(std::vector<std::string>& command, Placement placement) {
    int ends[2];
    check(pipe2(ends, O_CLOEXEC) == 0, "pipe2");
    pid_ = fork();
    if (pid_ == 0) become(command, placement, ends[1]);
    close(ends[1]);
    output_ = ends[0];
    check(pid_ != -1, "fork");
}

void Service::awaitSign(const std::string& sign) {
    std::string printed;
    while (printed.find(sign) == std::string::npos) {
        pollfd readable = {output_, POLLIN, 0};
        char text[512];
        const ssize_t size = poll(&readable, 1, patience) == 1 ? read(output_, text, sizeof text) : 0;
        expect(size > 0, printed);
        printed.append(text, static_cast<std::size_t>(size));
    }
}

void Service::end() {
    if (pid_ != -1) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    close(output_);
}

}  // namespace bench
