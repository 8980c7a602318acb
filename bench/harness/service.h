#ifndef LINXIPC_BENCH_HARNESS_SERVICE_H
#define LINXIPC_BENCH_HARNESS_SERVICE_H

#include <sys/types.h>

#include <string>
#include <vector>

#include "bench/harness/placement.h"

namespace bench {

/// Where the search path has the program; empty where it has not.
std::string findProgram(const std::string& program);

/// A daemon of a peer's, for as long as this object lives.
class Service {
public:
    /// Starts `command` where the run's processes are and returns when it has printed `sign`. Throws a Failure when
    /// it ends before that.
    Service(std::vector<std::string> command, Placement placement, const std::string& sign);

    /// Kills the daemon: none is needed any more that would have to put things in order.
    ~Service();
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    pid_t pid() const { return pid_; }

private:
    void start(std::vector<std::string>& command, Placement placement);
    void awaitSign(const std::string& sign);
    void end();

    pid_t pid_ = -1;
    int output_ = -1;
};

}  // namespace bench

#endif
