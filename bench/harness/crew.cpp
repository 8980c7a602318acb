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

sigset_t Awaited() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int number : {SIGCHLD, SIGINT, SIGTERM, SIGHUP}) sigaddset(&signals, number);
    return signals;
}

[[noreturn]] void Perform(const Member& member, pid_t parent) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) _exit(1);  // it died before it could be watched
    const sigset_t awaited = Awaited();
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
            if (pid == 0) Perform(member, parent);
            if (pid == -1) KillAll();
            Check(pid != -1, "fork");
            running[pid] = member.part;
            if (member.part == Member::Part::principal) ++principals;
        }
    }
    ~Crew() { KillAll(); }
    Crew(const Crew&) = delete;
    Crew& operator=(const Crew&) = delete;

    void AwaitPrincipals(unsigned seconds) {
        const std::uint64_t deadline = Now() + seconds * std::uint64_t{1000000000};
        const sigset_t awaited = Awaited();
        while (principals > 0) {
            const std::uint64_t now = Now();
            Expect(now < deadline, "a run has not ended in time");
            const std::uint64_t left = deadline - now;
            const timespec time = {static_cast<time_t>(left / 1000000000), static_cast<long>(left % 1000000000)};
            const int number = sigtimedwait(&awaited, nullptr, &time);
            Expect(number == -1 || number == SIGCHLD, "told to end");
            while (Reap()) {
            }
        }
    }

private:
    bool Reap() {
        for (const auto& [pid, part] : running) {
            int status = 0;
            if (waitpid(pid, &status, WNOHANG | WUNTRACED) != pid) continue;
            if (!WIFSTOPPED(status)) running.erase(pid);
            Expect(WIFSTOPPED(status), "a process of the run has failed");
            --principals;
            return true;
        }
        return false;
    }

    void KillAll() {
        for (const auto& [pid, part] : running) kill(pid, SIGKILL);
        for (const auto& [pid, part] : running) waitpid(pid, nullptr, 0);
        running.clear();
    }

    std::map<pid_t, Member::Part> running;
    unsigned principals = 0;
};

}  // namespace

void PrepareForCrews() {
    const sigset_t awaited = Awaited();
    sigprocmask(SIG_BLOCK, &awaited, nullptr);
}

void RunCrew(const std::vector<Member>& members, unsigned seconds) {
    Crew crew(members);
    crew.AwaitPrincipals(seconds);
}

}  // namespace bench
