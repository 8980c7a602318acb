#ifndef LINXIPC_TESTS_LINK_PROGRAM_RUNNING_H
#define LINXIPC_TESTS_LINK_PROGRAM_RUNNING_H

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>

#include <csignal>
#include <optional>

#include "tests/link/program/program_fixture.h"

namespace linktest {

/// linx-link at work, and what it has logged. Killed when the test has done with it.
class Running {
public:
    Running(const std::string& directory, const std::string& configuration) {
        int ends[2];
        EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
        const std::string path = directory + "/" + configuration;
        const char* const arguments[] = {LINX_LINK, path.c_str(), nullptr};
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, ends[1], STDERR_FILENO);
        EXPECT_EQ(posix_spawn(&process_, LINX_LINK, &actions, nullptr, const_cast<char**>(arguments), environ), 0);
        posix_spawn_file_actions_destroy(&actions);
        close(ends[1]);
        log_ = ends[0];
    }
    ~Running() {
        if (process_ != -1) end(SIGKILL);
        close(log_);
    }
    Running(const Running&) = delete;
    Running& operator=(const Running&) = delete;

    /// Reads on until a line is that text, behind the program's name. False when it ends before, or takes too long.
    bool hasLogged(const std::string& line) { return hasLoggedPart(line + "\n"); }
    /// The same, but the line may go on.
    bool hasLoggedPart(const std::string& line) {
        const std::string text = "linx-link: " + line;
        for (;;) {
            const size_t at = unread_.find(text);
            if (at != std::string::npos) {
                unread_.erase(0, at + text.size());
                return true;
            }
            if (!readMore()) {
                ADD_FAILURE() << "not logged: " << line << "\nbut: " << unread_;
                return false;
            }
        }
    }
    void send(int signal) const { kill(process_, signal); }
    /// Its exit status, or 256 and the number of the signal that ended it.
    int end(int signal) {
        send(signal);
        int status = 0;
        waitpid(process_, &status, 0);
        process_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 256 + WTERMSIG(status);
    }

private:
    bool readMore() {
        constexpr int longest = 60000;
        pollfd polled = {log_, POLLIN, 0};
        char part[4096];
        const ssize_t size = poll(&polled, 1, longest) == 1 ? read(log_, part, sizeof part) : 0;
        if (size > 0) unread_.append(part, static_cast<size_t>(size));
        return size > 0;
    }

    pid_t process_ = -1;
    int log_ = -1;
    std::string unread_;
};

/// What nodes tell of this one.
inline const std::string machine = std::to_string(8 * sizeof(void*)) + " bits, " +
                                   (__BYTE_ORDER__ == __ORDER_BIG_ENDIAN__ ? "highest" : "lowest") + " byte first";

}  // namespace linktest

#endif
