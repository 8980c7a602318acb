#include "demo/processes.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include "demo/nodes.h"

namespace demo {

namespace {

void inherit(int descriptor) {
    fcntl(descriptor, F_SETFD, 0);
}

}  // namespace

Processes::Processes(const Options& chosen, int reportsEnd, int frontPanelEnd, const sigset_t& startMask)
    : options_(chosen), reports_(reportsEnd), frontPanel_(frontPanelEnd), mask_(startMask) {}

pid_t Processes::start(e_Process server) {
    return run(server, options_.servers,
               {"linx-demo", "serve", nameOf(server), "--reports", std::to_string(reports_), "--front-panel",
                std::to_string(frontPanel_), "--seed", std::to_string(options_.seed), "--payload",
                std::to_string(options_.payload), "--limit", std::to_string(options_.limit)});
}

pid_t Processes::startLink(e_Process link) {
    return run(link, options_.link, {"linx-link", configurationOf(link, std::getenv("LINX_DOMAIN"))});
}

pid_t Processes::run(e_Process process, const std::string& program, const std::vector<std::string>& arguments) {
    std::vector<char*> pointers;
    for (const std::string& argument : arguments) pointers.push_back(const_cast<char*>(argument.c_str()));
    pointers.push_back(nullptr);
    const std::string domain = domainOf(process, std::getenv("LINX_DOMAIN"));
    const pid_t parent = getpid();
    const pid_t pid = fork();
    if (pid == 0) {
        setenv("LINX_DOMAIN", domain.c_str(), 1);
        become(program, pointers.data(), parent);
    }
    if (pid > 0) running_[pid] = process;
    return pid;
}

void Processes::become(const std::string& program, char* const* arguments, pid_t parent) const {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) _exit(1);  // it died before it could be watched
    ::signal(SIGINT, SIG_IGN);          // the terminal's signals are for the launcher, which ends its servers
    ::signal(SIGHUP, SIG_IGN);
    ::signal(SIGPIPE, SIG_DFL);
    sigprocmask(SIG_SETMASK, &mask_, nullptr);
    inherit(reports_);
    inherit(frontPanel_);
    execv(program.c_str(), arguments);
    _exit(127);
}

pid_t Processes::signal(e_Process server, int number) {
    for (auto process = running_.rbegin(); process != running_.rend(); ++process) {
        if (process->second != server) continue;
        return ::kill(process->first, number) == 0 ? process->first : -1;
    }
    return -1;
}

bool Processes::hasOnlyLinks() const {
    return !running_.empty() &&
           std::all_of(running_.begin(), running_.end(), [](const auto& one) { return isLink(one.second); });
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
