#ifndef LINXIPC_TESTS_SERVICES_CHILDPROCESS_H
#define LINXIPC_TESTS_SERVICES_CHILDPROCESS_H

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <map>
#include <string>

/// The log client reads its environment once, so each case runs in a process of its own. Calls `body` in a child
/// with exactly `environment` among $LINX_LOG and $LINX_LOG_LEVEL; returns what the child left as its exit status,
/// -1 if a signal ended it.
inline int runInChild(const std::map<std::string, std::string>& environment, const std::function<int()>& body) {
    const pid_t child = fork();
    if (child == 0) {
        unsetenv("LINX_LOG");
        unsetenv("LINX_LOG_LEVEL");
        for (const auto& [name, value] : environment) setenv(name.c_str(), value.c_str(), 1);
        _exit(body());
    }
    int status = 0;
    if (child == -1 || waitpid(child, &status, 0) != child || !WIFEXITED(status)) return -1;
    return WEXITSTATUS(status);
}

#endif
