#ifndef LINXIPC_DEMO_PROCESSES_H
#define LINXIPC_DEMO_PROCESSES_H

#include <sys/types.h>

#include <csignal>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "demo/options.h"
#include "directory/e_Process.h"

namespace demo {

/// The server processes: this program or another build of it, executed anew for each. They die with the launcher,
/// whatever ends it.
class Processes {
public:
    /// The descriptors that servers inherit stay the caller's; `startMask` is the signal mask that they start with.
    Processes(const Options& chosen, int reportsEnd, int frontPanelEnd, const sigset_t& startMask);

    /// Kills and reaps those that are left.
    ~Processes() { killAll(); }
    Processes(const Processes&) = delete;
    Processes& operator=(const Processes&) = delete;

    /// Starts a server. Its pid, or -1 with errno.
    pid_t start(e_Process server);

    /// Starts a link, as it is configured beneath the domain. Its pid, or -1 with errno.
    pid_t startLink(e_Process link);

    /// Sends a signal to the process of a server, or of a link. Its pid, or -1 when it is not there.
    pid_t signal(e_Process server, int number);

    /// Kills and reaps all that run. How many there were.
    std::size_t killAll();

    /// A process that has ended.
    struct End {
        e_Process server;
        pid_t pid;
        int status;
    };

    /// The next one that has ended, if any; it does not wait.
    std::optional<End> reap();

    bool empty() const { return running_.empty(); }

    /// Whether links are left, and nothing else.
    bool hasOnlyLinks() const;

private:
    pid_t run(e_Process process, const std::string& program, const std::vector<std::string>& arguments);
    [[noreturn]] void become(const std::string& program, char* const* arguments, pid_t parent) const;

    const Options& options_;
    int reports_;
    int frontPanel_;
    sigset_t mask_;
    std::map<pid_t, e_Process> running_;
};

}  // namespace demo

#endif
