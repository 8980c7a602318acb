#include "bench/harness/crew.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <map>

#include "bench/harness/check.h"
#include "bench/harness/clock.h"

namespace bench {

namespace {

sigset_t awaitedSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int number : {SIGCHLD, SIGINT, SIGTERM, SIGHUP}) sigaddset(&signals, number);
    return signals;
}

[[noreturn]] void perform(const Member& member, pid_t parent) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) _exit(1);  // it died before it could be watched
    const sigset_t awaited = awaitedSignals();
    sigprocmask(SIG_UNBLOCK, &awaited, nullptr);
    try {
        errno = 0;
        member.body();
        // Its end would break what others are still doing, so it stands still until the whole crew is killed.
        if (member.part == Member::Part::principal) raise(SIGSTOP);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "%s\n", failure.what());
    }
    _exit(1);
}

/// The processes of a run, none of which outlives this object.
class Crew {
public:
    explicit Crew(const std::vector<Member>& members) {
        std::fflush(nullptr);
        const pid_t parent = getpid();
        for (const Member& member : members) {
            const pid_t pid = fork();
            if (pid == 0) perform(member, parent);
            if (pid == -1) killAll();
            check(pid != -1, "fork");
            running_[pid] = member.part;
            if (member.part == Member::Part::principal) ++principals_;
        }
    }
    ~Crew() { killAll(); }
    Crew(const Crew&) = delete;
    Crew& operator=(const Crew&) = delete;

    void awaitPrincipals(unsigned seconds) {
        const std::uint64_t deadline = now() + seconds * std::uint64_t{1000000000};
        const sigset_t awaited = awaitedSignals();
        while (principals_ > 0) {
            const std::uint64_t present = now();
            expect(present < deadline, "a run has not ended in time");
            const std::uint64_t left = deadline - present;
            const timespec time = {static_cast<time_t>(left / 1000000000), static_cast<long>(left % 1000000000)};
            const int number = sigtimedwait(&awaited, nullptr, &time);
            expect(number == -1 || number == SIGCHLD, "told to end");
            while (reap()) {
            }
        }
    }

private:
    bool reap() {
        for (const auto& [pid, part] : running_) {
            int status = 0;
            if (waitpid(pid, &status, WNOHANG | WUNTRACED) != pid) continue;
            if (!WIFSTOPPED(status)) running_.erase(pid);
            expect(WIFSTOPPED(status), "a process of the run has failed");
            --principals_;
            return true;
        }
        return false;
    }

    void killAll() {
        for (const auto& [pid, part] : running_) kill(pid, SIGKILL);
        for (const auto& [pid, part] : running_) waitpid(pid, nullptr, 0);
        running_.clear();
    }

    std::map<pid_t, Member::Part> running_;
    unsigned principals_ = 0;
};

}  // namespace

void prepareForCrews() {
    const sigset_t awaited = awaitedSignals();
    sigprocmask(SIG_BLOCK, &awaited, nullptr);
}

void runCrew(const std::vector<Member>& members, unsigned seconds) {
    Crew crew(members);
    crew.awaitPrincipals(seconds);
}

}  // namespace bench
