#include "tests/calls/tracer.h"

#include <signal.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <utility>

#include "tests/calls/registers.h"
#include "tests/kit/line.h"

namespace calls {
namespace {

constexpr long options =
    PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACEFORK | PTRACE_O_TRACEVFORK | PTRACE_O_TRACECLONE | PTRACE_O_EXITKILL;
constexpr int callStop = SIGTRAP | 0x80;

/// Makes a wait of this thread end when it has taken for too long.
class Limit {
public:
    Limit() {
        struct sigaction action = {};
        action.sa_handler = [](int) {};  // and no restart
        sigaction(SIGALRM, &action, &before_);
        const itimerval limit = {{1, 0}, {patience / 1000, 0}};  // and again, should it come between two waits
        setitimer(ITIMER_REAL, &limit, nullptr);
    }
    ~Limit() {
        const itimerval none = {};
        setitimer(ITIMER_REAL, &none, nullptr);
        sigaction(SIGALRM, &before_, nullptr);
    }
    Limit(const Limit&) = delete;
    Limit& operator=(const Limit&) = delete;

private:
    struct sigaction before_ = {};
};

int eventOf(int status) {
    return status >> 16;
}

bool isFork(int event) {
    return event == PTRACE_EVENT_FORK || event == PTRACE_EVENT_VFORK || event == PTRACE_EVENT_CLONE;
}

/// Waits for an end or a stop, of a process or, if it is negative, of a group, and leaves it to be waited for again.
bool peek(pid_t which, siginfo_t& info) {
    info.si_pid = 0;
    return waitid(which < 0 ? P_PGID : P_PID, static_cast<id_t>(which < 0 ? -which : which), &info,
                  WEXITED | WSTOPPED | WNOWAIT | __WALL) == 0;
}

bool hasEnded(const siginfo_t& info) {
    return info.si_code == CLD_EXITED || info.si_code == CLD_KILLED || info.si_code == CLD_DUMPED;
}

}  // namespace

bool Tracer::isPossible() {
    if (!registers::known) return false;
    const pid_t child = fork();
    if (child == 0) {
        pause();
        _exit(0);
    }
    siginfo_t info;
    __ptrace_syscall_info call;
    const bool possible = ptrace(PTRACE_SEIZE, child, nullptr, options) == 0 &&
                          ptrace(PTRACE_INTERRUPT, child, nullptr, nullptr) == 0 && peek(child, info) &&
                          ptrace(PTRACE_GET_SYSCALL_INFO, child, sizeof call, &call) > 0;
    ::kill(child, SIGKILL);
    waitpid(child, nullptr, __WALL);
    return possible;
}

Tracer::Tracer(pid_t process, const std::atomic<Window>& window)
    : leader_(process), window_(window), actor_(process) {
    if (ptrace(PTRACE_SEIZE, process, nullptr, options) == -1) return;
    traced_.push_back(process);
    ptrace(PTRACE_INTERRUPT, process, nullptr, nullptr);
}

Tracer::~Tracer() {
    letGo();
}

Tracer::State Tracer::run(const Watch& watch) {
    const Limit limit;
    if (standing_ != 0) resume(standing_);
    standing_ = 0;
    while (!traced_.empty()) {
        Stop stop;
        if (!awaitStop(stop, -leader_)) {
            if (errno == EINTR) return State::hangs;
            continue;
        }
        if (handle(stop, watch)) return State::stands;
        if (window_ == Window::over) letGo();
    }
    return State::free;
}

/// The next stop of one of the group, or of one process. False when somebody has ended instead, or with errno EINTR
/// when nothing happens for too long. The leader's end is left to its parent.
bool Tracer::awaitStop(Stop& stop, pid_t which) {
    siginfo_t info;
    if (!peek(which, info)) {
        if (errno != EINTR) traced_.clear();
        return false;
    }
    stop.process = info.si_pid;
    const bool ended = hasEnded(info);
    if (!ended || stop.process != leader_) waitpid(stop.process, &stop.status, __WALL);
    if (!ended) return true;
    traced_.erase(std::remove(traced_.begin(), traced_.end(), stop.process), traced_.end());
    if (stop.process == leader_) traced_.clear();  // who is still there dies with it
    errno = 0;
    return false;
}

void Tracer::resume(pid_t process, int signal) {
    ptrace(PTRACE_SYSCALL, process, nullptr, signal);
}

/// A process that is traced from its birth.
void Tracer::add(pid_t process) {
    if (std::find(traced_.begin(), traced_.end(), process) != traced_.end()) return;
    traced_.push_back(process);
    if (window_ == Window::open) actor_ = process;
}

/// Sees to a stop. Whether the process has to stand still there; otherwise it goes on.
bool Tracer::handle(const Stop& stop, const Watch& watch) {
    add(stop.process);
    const int event = eventOf(stop.status);
    int signal = 0;
    if (isFork(event)) {
        unsigned long child = 0;
        ptrace(PTRACE_GETEVENTMSG, stop.process, nullptr, &child);
        add(static_cast<pid_t>(child));
    } else if (event == 0 && WSTOPSIG(stop.status) == callStop) {
        if (stop.process == actor_ && window_ == Window::open && handleCall(stop.process, watch)) {
            standing_ = stop.process;
            return true;
        }
    } else if (event == 0) {
        signal = WSTOPSIG(stop.status);
    }
    resume(stop.process, signal);
    return false;
}

bool Tracer::handleCall(pid_t process, const Watch& watch) {
    __ptrace_syscall_info info = {};
    if (ptrace(PTRACE_GET_SYSCALL_INFO, process, sizeof info, &info) <= 0) return false;
    call_.done = info.op == PTRACE_SYSCALL_INFO_EXIT;
    if (!call_.done) {
        call_.number = info.entry.nr;
        std::copy(std::begin(info.entry.args), std::end(info.entry.args), call_.arguments);
        error_ = 0;
    } else if (error_ != 0) {
        answer(process);
        return false;
    }
    const Decision decision = watch(call_);
    if (decision.kind == Decision::Kind::fail) fail(process, decision.error);
    return decision.kind == Decision::Kind::stand;
}

/// The call that is being made, or has been made, fails.
void Tracer::fail(pid_t process, int error) {
    error_ = error;
    if (call_.done) {
        answer(process);
    } else if (call_.number == SYS_brk) {
        registers::setArgument(process,
                               0);  // asks where the memory ends, which is also its answer when there is none
    } else {
        registers::skipCall(process);
    }
}

void Tracer::answer(pid_t process) {
    if (call_.number == SYS_brk) {
        registers::setArgument(process, call_.arguments[0]);
    } else {
        registers::answer(process, error_);
    }
}

bool Tracer::kill() {
    const pid_t killed = std::exchange(standing_, 0);
    ::kill(killed, SIGKILL);
    if (killed != leader_) {
        waitpid(killed, nullptr, __WALL);  // or its parent would wait for it in vain
        traced_.erase(std::remove(traced_.begin(), traced_.end(), killed), traced_.end());
    }
    letGo();
    return killed == leader_;
}

/// Traces nobody any more: who stands still goes on.
void Tracer::letGo() {
    const std::vector<pid_t> all = traced_;
    for (const pid_t process : all) {
        int signal = 0;
        if (process != standing_) {
            ptrace(PTRACE_INTERRUPT, process, nullptr, nullptr);
            Stop stop;
            if (!awaitStop(stop, process)) continue;
            const bool isSignal = eventOf(stop.status) == 0 && WSTOPSIG(stop.status) != callStop;
            if (isSignal) signal = WSTOPSIG(stop.status);
        }
        ptrace(PTRACE_DETACH, process, nullptr, signal);
    }
    traced_.clear();
    standing_ = 0;
}

}  // namespace calls
