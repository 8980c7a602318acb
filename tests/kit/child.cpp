#include "tests/kit/child.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

namespace {

int waitFor(pid_t process, int options) {
    int status = 0;
    while (waitpid(process, &status, options) == -1 && errno == EINTR) {
    }
    return status;
}

}  // namespace

void dieWithParent() {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
}

Child::Child(const Body& body) {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == -1) abort();
    std::fflush(nullptr);
    pid_ = fork();
    if (pid_ == -1) abort();
    line_ = std::make_unique<Line>(ends[pid_ == 0 ? 1 : 0]);
    close(ends[pid_ == 0 ? 0 : 1]);
    if (pid_ != 0) {
        failures_.closeDescriptor();
        return;
    }
    failures_.note();
    dieWithParent();
    body(*line_);
    std::fflush(nullptr);
    _exit(failures_.text().empty() ? 0 : 1);  // and not of what failed before, elsewhere
}

Child::~Child() {
    if (pid_ != -1) kill9();
}

void Child::kill9() {
    kill(pid_, SIGKILL);
    awaitEnd();
}

int Child::awaitEnd() {
    const int status = waitFor(pid_, 0);
    const std::string failures = failures_.text();
    if (!failures.empty()) ADD_FAILURE() << "in process " << pid_ << ": " << failures;
    pid_ = -1;
    return status;
}

void Child::stop() const {
    kill(pid_, SIGSTOP);
    EXPECT_TRUE(WIFSTOPPED(waitFor(pid_, WUNTRACED)));
}

void Child::cont() const {
    kill(pid_, SIGCONT);
}

bool Child::hasEnded() const {
    siginfo_t end = {};
    waitid(P_PID, static_cast<id_t>(pid_), &end, WEXITED | WNOHANG | WNOWAIT);
    return end.si_pid == pid_;
}

void Child::awaitSleep() const {
    const std::string path = "/proc/" + std::to_string(pid_) + "/stat";
    EXPECT_TRUE(comesTrue([&] {
        std::string text;
        std::getline(std::ifstream(path), text);
        const size_t behindName = text.rfind(')');
        return behindName != std::string::npos && text.compare(behindName, 3, ") S") == 0;
    })) << "the process never sleeps";
}

bool Child::endsInTime() const {
    const auto endsInAMoment = [this] {
        if (hasEnded()) return true;
        const timespec moment = {0, 200000};
        nanosleep(&moment, nullptr);
        return false;
    };
    return comesTrue(endsInAMoment, 3 * patience);
}

int Child::exitStatus() {
    const int status = awaitEnd();
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}
