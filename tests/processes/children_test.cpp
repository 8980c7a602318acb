// Processes are started while other threads are in the middle of opening and closing: nobody waits for what the new
// ones have inherited, nor they for what they have not.

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <fstream>
#include <thread>

#include "tests/kit/child.h"
#include "tests/kit/domain_test.h"
#include "tests/kit/shared.h"
#include "tests/kit/signals.h"

namespace {

using linxtest::ScopedVariable;

/// A thread that opens and closes an endpoint, again and again, while this lives.
class ComingAndGoing {
public:
    ComingAndGoing() {
        while (rounds_ == 0) sched_yield();
    }
    ~ComingAndGoing() {
        enough_ = true;
        thread_.join();
    }
    ComingAndGoing(const ComingAndGoing&) = delete;
    ComingAndGoing& operator=(const ComingAndGoing&) = delete;

private:
    void comeAndGo() {
        while (!enough_) {
            LINX* linx = linx_open("thread", 0, nullptr);
            EXPECT_NE(linx, nullptr);
            EXPECT_EQ(linx_close(linx), 0);
            ++rounds_;
        }
    }

    std::atomic<bool> enough_{false};
    std::atomic<uint32_t> rounds_{0};
    std::thread thread_{[this] { comeAndGo(); }};
};

class Children : public ProcessTest {
protected:
    /// A named pipe beside the domain's files.
    std::string makePipe(const std::string& name) const {
        const std::string path = domain.pathOf(name);
        EXPECT_EQ(mkfifo(path.c_str(), 0600), 0);
        return path;
    }
};

/// Starts a program that opens one pipe and then the other before it runs, each when somebody opens it for writing.
void spawn(const std::string& first, const std::string& second) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, first.c_str(), O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, second.c_str(), O_RDONLY, 0);
    char program[] = "true";
    char* arguments[] = {program, nullptr};
    pid_t process = -1;
    EXPECT_EQ(posix_spawnp(&process, program, &actions, nullptr, arguments, environ), 0);
    posix_spawn_file_actions_destroy(&actions);
    int status = -1;
    waitpid(process, &status, 0);
    EXPECT_EQ(status, 0);
}

/// Opens a pipe for writing as soon as somebody else opens it for reading.
void release(const std::string& pipe) {
    const int file = open(pipe.c_str(), O_WRONLY | O_CLOEXEC);
    EXPECT_NE(file, -1);
    close(file);
}

TEST_F(Children, OneThatIsStartingAndStandsStillDoesNotKeepTheLockOfItsParent) {
    const std::string first = makePipe("first");
    const std::string second = makePipe("second");
    Child starter([&](Line& parent) {
        const ComingAndGoing thread;
        while (parent.hear() != 0) {
            spawn(first, second);
            parent.tell();
        }
    });
    for (int round = 0; round < 20 && !testing::Test::HasFailure(); ++round) {
        starter.tell(1);
        release(first);
        // It stands between the two now, with copies of whatever descriptors its parent had.
        Child stranger([](Line& parent) {
            const Endpoint endpoint("stranger");
            parent.tell();
        });
        stranger.hear();
        release(second);
        starter.hear();
        EXPECT_EQ(stranger.exitStatus(), 0);
    }
    starter.tell(0);
    EXPECT_EQ(starter.exitStatus(), 0);
}

/// Forks a child that opens an endpoint and closes it, and tells whether it has.
bool canOpenInChild() {
    Child child([](Line&) { const Endpoint endpoint("child"); });
    return child.endsInTime() && child.exitStatus() == 0;
}

TEST_F(Children, ForkedWhileAThreadOpensAndClosesMayOpenToo) {
    Child parent([](Line&) {
        const ComingAndGoing thread;
        for (int round = 0; round < 200; ++round) ASSERT_TRUE(canOpenInChild()) << "round " << round;
    });
    EXPECT_EQ(parent.exitStatus(), 0);
}

/// Waits until a thread of this process waits for something.
void awaitSleepOf(pid_t thread) {
    const std::string path = "/proc/self/task/" + std::to_string(thread) + "/stat";
    std::string text;
    do {
        sched_yield();
        std::getline(std::ifstream(path), text);
    } while (text.find(") S") == std::string::npos);
}

TEST_F(Children, NorOtherDomainsWaitForADomainWhoseLockIsNotGivenBack) {
    { const Endpoint endpoint("first"); }
    const int stuck = open(domain.pathOf("arena").c_str(), O_RDWR | O_CLOEXEC);
    const linxtest::TestDomain other;
    Child lockHolder([&](Line& parent) {
        EXPECT_EQ(flock(stuck, LOCK_EX), 0);
        parent.tell();
        parent.hear();
        EXPECT_EQ(flock(stuck, LOCK_UN), 0);
    });
    lockHolder.hear();
    Child process([&](Line& parent) {
        std::atomic<pid_t> waiting{0};
        ScopedVariable chosen("LINX_DOMAIN", domain.path().c_str());
        std::thread thread([&] {
            waiting = gettid();
            const Endpoint endpoint("waits");
        });
        while (waiting == 0) sched_yield();
        awaitSleepOf(waiting);
        chosen.set(other.path().c_str());
        { const Endpoint endpoint("elsewhere"); }
        EXPECT_TRUE(canOpenInChild());
        parent.tell();
        thread.join();
    });
    process.hear();
    lockHolder.tell();
    EXPECT_EQ(lockHolder.exitStatus(), 0);
    EXPECT_EQ(process.exitStatus(), 0);
    close(stuck);
}

}  // namespace
