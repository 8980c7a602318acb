#include "tools/graphviz.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>

#include "host/system/clock.h"
#include "host/system/scoped_descriptor.h"
#include "host/system/uninterrupted.h"
#include "tools/failure.h"

extern char** environ;

namespace tools {
namespace {

using linx::ScopedDescriptor;
using linx::uninterrupted;

[[noreturn]] void fail(const std::string& why) {
    throw Failure(refused, why + "; --dot prints what it would draw");
}

[[noreturn]] void failFor(int reason) {
    if (reason == ENOENT) fail("Graphviz, whose program `dot` draws graphs, is not installed");
    fail("Graphviz's `dot` cannot be run: " + std::string(std::strerror(reason)));
}

void write(int file, const std::string& text) {
    for (size_t written = 0; written != text.size();) {
        const ssize_t count = uninterrupted(
            [&] { return pwrite(file, text.data() + written, text.size() - written, static_cast<off_t>(written)); });
        if (count <= 0) failFor(errno);
        written += static_cast<size_t>(count);
    }
}

/// `dot`, killed if it still runs when this object goes.
class Child {
public:
    Child(int in, int out) {
        posix_spawn_file_actions_t streams;
        posix_spawnattr_t attributes;
        if (posix_spawn_file_actions_init(&streams) != 0 || posix_spawnattr_init(&attributes) != 0) failFor(ENOMEM);
        posix_spawn_file_actions_adddup2(&streams, in, STDIN_FILENO);
        posix_spawn_file_actions_adddup2(&streams, out, STDOUT_FILENO);
        posix_spawn_file_actions_addopen(&streams, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
        sigset_t usual;
        sigemptyset(&usual);
        sigaddset(&usual, SIGPIPE);
        posix_spawnattr_setsigdefault(&attributes, &usual);
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
        char program[] = "dot", format[] = "-Tsvg";
        char* const arguments[] = {program, format, nullptr};
        const int failure = posix_spawnp(&pid_, program, &streams, &attributes, arguments, environ);
        posix_spawnattr_destroy(&attributes);
        posix_spawn_file_actions_destroy(&streams);
        if (failure != 0) failFor(failure);
    }
    ~Child() {
        if (pid_ == -1) return;
        kill(pid_, SIGKILL);
        reap();
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    bool awaitEnd() {
        // What a child says that could not become the program, where the C library cannot tell its parent.
        constexpr int notFound = 127;
        const int status = reap();
        if (WIFEXITED(status) && WEXITSTATUS(status) == notFound) failFor(ENOENT);
        return WIFEXITED(status) && WEXITSTATUS(status) == 0;
    }

private:
    int reap() {
        int status = 0;
        uninterrupted([&] { return waitpid(pid_, &status, 0); });
        pid_ = -1;
        return status;
    }

    pid_t pid_ = -1;
};

/// Everything until its end; none when that does not come in time.
std::optional<std::string> readAll(int file, std::optional<std::chrono::milliseconds> limit) {
    const uint64_t begin = linx::now();
    std::string text;
    for (char bytes[65536];;) {
        int left = -1;
        if (limit) {
            const uint64_t passed = (linx::now() - begin) / linx::nanosecondsPerMillisecond;
            left = static_cast<int>(std::clamp<int64_t>(limit->count() - static_cast<int64_t>(passed), 0, 1 << 30));
        }
        pollfd asked{file, POLLIN, 0};
        if (uninterrupted([&] { return poll(&asked, 1, left); }) == 0) return std::nullopt;
        const ssize_t count = uninterrupted([&] { return read(file, bytes, sizeof bytes); });
        if (count <= 0) return text;
        text.append(bytes, static_cast<size_t>(count));
    }
}

}  // namespace

std::string drawnByGraphviz(const std::string& graph, std::optional<std::chrono::milliseconds> limit) {
    // A file without a name, so that `dot` can read at its own pace whatever this program waits for.
    const ScopedDescriptor input(memfd_create("graph", MFD_CLOEXEC));
    if (input.get() == -1) failFor(errno);
    write(input.get(), graph);
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) == -1) failFor(errno);
    const ScopedDescriptor drawing(ends[0]);
    ScopedDescriptor output(ends[1]);
    Child dot(input.get(), output.get());
    output.reset();
    const std::optional<std::string> drawn = readAll(drawing.get(), limit);
    if (!drawn)
        throw Failure(timedOut,
                      "Graphviz's `dot` has not drawn the graph in time; -N leaves out all but the busiest");
    if (!dot.awaitEnd() || drawn->find("<svg") == std::string::npos) fail("Graphviz's `dot` has failed");
    return *drawn;
}

}  // namespace tools
