#include "demo/processes.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "demo/roster.h"

namespace demo {

namespace {

void Inherit(int descriptor) {
    fcntl(descriptor, F_SETFD, 0);
}

}  // namespace

Processes::Processes(const Options& chosen, int reportsEnd, int frontPanelEnd, const sigset_t& startMask)
    : options(chosen), reports(reportsEnd), frontPanel(frontPanelEnd), mask(startMask) {}

pid_t Processes::Start(e_Process server) {
    const pid_t parent = getpid();
    const pid_t pid = fork();
    if (pid == 0) Become(server, parent);
    if (pid > 0) running[pid] = server;
    return pid;
}

void Processes::Become(e_Process server, pid_t parent) const {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) _exit(1);  // it died before it could be watched
    signal(SIGINT, SIG_IGN);            // the terminal's signals are for the launcher, which ends its servers
    signal(SIGHUP, SIG_IGN);
    signal(SIGPIPE, SIG_DFL);
    sigprocmask(SIG_SETMASK, &mask, nullptr);
    Inherit(reports);
    Inherit(frontPanel);
    const std::string reportsText = std::to_string(reports);
    const std::string frontPanelText = std::to_string(frontPanel);
    const std::string seed = std::to_string(options.seed);
    const std::string payload = std::to_string(options.payload);
    const std::string limit = std::to_string(options.limit);
    execl(options.servers.c_str(), "linx-demo", "serve", Name(server).c_str(), "--reports", reportsText.c_str(),
          "--front-panel", frontPanelText.c_str(), "--seed", seed.c_str(), "--payload", payload.c_str(), "--limit",
          limit.c_str(), static_cast<char*>(nullptr));
    _exit(127);
}

pid_t Processes::Kill(e_Process server) {
    for (auto process = running.rbegin(); process != running.rend(); ++process) {
        if (process->second != server) continue;
        return kill(process->first, SIGKILL) == 0 ? process->first : -1;
    }
    return -1;
}

std::size_t Processes::KillAll() {
    const std::size_t count = running.size();
    for (const auto& [pid, server] : running) kill(pid, SIGKILL);
    for (const auto& [pid, server] : running) {
        while (waitpid(pid, nullptr, 0) == -1 && errno == EINTR) {
        }
    }
    running.clear();
    return count;
}

std::optional<Processes::End> Processes::Reap() {
    int status = 0;
    const pid_t pid = waitpid(-1, &status, WNOHANG);
    if (pid <= 0) return std::nullopt;
    const auto process = running.find(pid);
    if (process == running.end()) return std::nullopt;
    const End end{process->second, pid, status};
    running.erase(process);
    return end;
}

}  // namespace demo
