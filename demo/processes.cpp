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

void inherit(int descriptor) {
    fcntl(descriptor, F_SETFD, 0);
}

}  // namespace

Processes::Processes(const Options& chosen, int reportsEnd, int frontPanelEnd, const sigset_t& startMask)
    : options_(chosen), reports_(reportsEnd), frontPanel_(frontPanelEnd), mask_(startMask) {}

pid_t Processes::start(e_Process server) {
    const pid_t parent = getpid();
    const pid_t pid = fork();
    if (pid == 0) become(server, parent);
    if (pid > 0) running_[pid] = server;
    return pid;
}

void Processes::become(e_Process server, pid_t parent) const {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) _exit(1);  // it died before it could be watched
    signal(SIGINT, SIG_IGN);            // the terminal's signals are for the launcher, which ends its servers
    signal(SIGHUP, SIG_IGN);
    signal(SIGPIPE, SIG_DFL);
    sigprocmask(SIG_SETMASK, &mask_, nullptr);
    inherit(reports_);
    inherit(frontPanel_);
    const std::string reportsText = std::to_string(reports_);
    const std::string frontPanelText = std::to_string(frontPanel_);
    const std::string seed = std::to_string(options_.seed);
    const std::string payload = std::to_string(options_.payload);
    const std::string limit = std::to_string(options_.limit);
    execl(options_.servers.c_str(), "linx-demo", "serve", nameOf(server).c_str(), "--reports", reportsText.c_str(),
          "--front-panel", frontPanelText.c_str(), "--seed", seed.c_str(), "--payload", payload.c_str(), "--limit",
          limit.c_str(), static_cast<char*>(nullptr));
    _exit(127);
}

pid_t Processes::kill(e_Process server) {
    for (auto process = running_.rbegin(); process != running_.rend(); ++process) {
        if (process->second != server) continue;
        return ::kill(process->first, SIGKILL) == 0 ? process->first : -1;
    }
    return -1;
}

std::size_t Processes::killAll() {
    const std::size_t count = running_.size();
    for (const auto& [pid, server] : running_) ::kill(pid, SIGKILL);
    for (const auto& [pid, server] : running_) {
        while (waitpid(pid, nullptr, 0) == -1 && errno == EINTR) {
        }
    }
    running_.clear();
    return count;
}

std::optional<Processes::End> Processes::reap() {
    int status = 0;
    const pid_t pid = waitpid(-1, &status, WNOHANG);
    if (pid <= 0) return std::nullopt;
    const auto process = running_.find(pid);
    if (process == running_.end()) return std::nullopt;
    const End end{process->second, pid, status};
    running_.erase(process);
    return end;
}

}  // namespace demo
