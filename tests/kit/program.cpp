#include "tests/kit/program.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>

namespace {

class FileActions {
public:
    explicit FileActions(const Program::Streams& streams) {
        posix_spawn_file_actions_init(&actions_);
        put(streams.in, STDIN_FILENO);
        put(streams.out, STDOUT_FILENO);
        put(streams.err, STDERR_FILENO);
    }
    ~FileActions() { posix_spawn_file_actions_destroy(&actions_); }
    FileActions(const FileActions&) = delete;
    FileActions& operator=(const FileActions&) = delete;

    const posix_spawn_file_actions_t* get() const { return &actions_; }

private:
    void put(int descriptor, int as) {
        if (descriptor != -1) posix_spawn_file_actions_adddup2(&actions_, descriptor, as);
    }

    posix_spawn_file_actions_t actions_;
};

class Attributes {
public:
    explicit Attributes(Program::Group group) {
        posix_spawnattr_init(&attributes_);
        sigset_t ordinary;
        sigemptyset(&ordinary);
        for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGPIPE}) sigaddset(&ordinary, number);
        posix_spawnattr_setsigdefault(&attributes_, &ordinary);
        posix_spawnattr_setpgroup(&attributes_, 0);
        const int flags = POSIX_SPAWN_SETSIGDEF | (group == Program::Group::own ? POSIX_SPAWN_SETPGROUP : 0);
        posix_spawnattr_setflags(&attributes_, static_cast<short>(flags));
    }
    ~Attributes() { posix_spawnattr_destroy(&attributes_); }
    Attributes(const Attributes&) = delete;
    Attributes& operator=(const Attributes&) = delete;

    const posix_spawnattr_t* get() const { return &attributes_; }

private:
    posix_spawnattr_t attributes_;
};

}  // namespace

Program::Program(const std::string& path, const std::vector<std::string>& arguments, Streams streams, Group group) {
    const std::string name = path.substr(path.rfind('/') + 1);
    std::vector<char*> argv = {const_cast<char*>(name.c_str())};
    for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    const FileActions actions(streams);
    const Attributes attributes(group);
    if (posix_spawn(&pid_, path.c_str(), actions.get(), attributes.get(), argv.data(), environ) != 0) std::abort();
}

Program::~Program() {
    if (pid_ == -1) return;
    kill(pid_, SIGKILL);
    awaitEnd();
}

int Program::awaitEnd() {
    int status = 0;
    while (waitpid(pid_, &status, 0) == -1 && errno == EINTR) {
    }
    pid_ = -1;
    return WIFSIGNALED(status) ? 256 + WTERMSIG(status) : WEXITSTATUS(status);
}

Ends openPipe() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) == -1) std::abort();
    return {ends[0], ends[1]};
}

Ends openTerminal() {
    const int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (master == -1 || grantpt(master) == -1 || unlockpt(master) == -1) std::abort();
    return {master, open(ptsname(master), O_RDWR | O_NOCTTY | O_CLOEXEC)};
}
