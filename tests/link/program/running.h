#ifndef LINXIPC_TESTS_LINK_PROGRAM_RUNNING_H
#define LINXIPC_TESTS_LINK_PROGRAM_RUNNING_H

#include <poll.h>

#include <csignal>
#include <optional>
#include <utility>

#include "tests/kit/program.h"
#include "tests/link/program/program_fixture.h"

namespace linktest {

/// linx-link at work, and what it has logged. Killed when the test has done with it.
class Running {
public:
    Running(const std::string& directory, const std::string& configuration) {
        const Ends ends = openPipe();
        program_.emplace(LINX_LINK, std::vector<std::string>{directory + "/" + configuration},
                         Program::Streams{-1, -1, ends.write});
        close(ends.write);
        log_ = ends.read;
    }
    ~Running() {
        program_.reset();
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
    /// What it has logged since then, for whoever wants to know why.
    std::string log() {
        pollfd polled = {log_, POLLIN, 0};
        while (poll(&polled, 1, 0) == 1 && readMore()) {
        }
        return unread_;
    }
    /// The same, once.
    std::string takeLog() {
        log();
        return std::exchange(unread_, std::string());
    }
    pid_t pid() const { return program_->pid(); }
    void send(int signal) const { kill(program_->pid(), signal); }
    /// Stops it, and returns when it stands still.
    void stop() const {
        send(SIGSTOP);
        siginfo_t stopped = {};
        EXPECT_EQ(waitid(P_PID, static_cast<id_t>(program_->pid()), &stopped, WSTOPPED), 0);
    }
    /// Its exit status, or 256 and the number of the signal that ended it.
    int end(int signal) {
        send(signal);
        return program_->awaitEnd();
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

    std::optional<Program> program_;
    int log_ = -1;
    std::string unread_;
};

/// What nodes tell of this one.
inline const std::string machine = std::to_string(8 * sizeof(void*)) + " bits, " +
                                   (__BYTE_ORDER__ == __ORDER_BIG_ENDIAN__ ? "highest" : "lowest") + " byte first";

}  // namespace linktest

#endif
