#include "host/system/file_lock.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <string>
#include <thread>

#include "host/arena/domain.h"
#include "host/recovery/retire.h"
#include "platform/linx.h"
#include "tests/kit/child.h"
#include "tests/kit/domain_test.h"

namespace linx {
namespace {

using FileLockTest = linxtest::DomainTest;

/// Opens an endpoint, makes a child that lives until `release` is closed, and takes the domain lock. Both tell the
/// child's number: the child once it has been made, the other when it has the lock.
[[noreturn]] void holdLock(const int (&tell)[2], const int (&release)[2]) {
    linx_open("holder", 0, nullptr);
    close(release[1]);
    const pid_t heir = fork();
    if (heir == 0) {
        const pid_t self = getpid();
        if (write(tell[1], &self, sizeof self) != sizeof self) _exit(1);
        char nothing;
        while (read(release[0], &nothing, 1) == -1) {
        }
        _exit(0);
    }
    const std::shared_ptr<Domain> domain = Domain::join();
    const DomainLock lock(*domain);
    if (lock.isHeld() && write(tell[1], &heir, sizeof heir) == sizeof heir) pause();
    _exit(1);
}

TEST_F(FileLockTest, GoesWithItsHolderThoughAChildOfThatOneLivesOn) {
    int tell[2];
    int release[2];
    ASSERT_EQ(pipe(tell), 0);
    ASSERT_EQ(pipe(release), 0);
    const pid_t holder = fork();
    if (holder == 0) holdLock(tell, release);
    close(tell[1]);
    close(release[0]);
    pid_t heir = -1;
    for (int teller = 0; teller < 2; ++teller) {
        EXPECT_EQ(read(tell[0], &heir, sizeof heir), ssize_t{sizeof heir});
    }
    kill(holder, SIGKILL);
    waitpid(holder, nullptr, 0);
    const std::shared_ptr<Domain> joined = Domain::join();
    EXPECT_TRUE(DomainLock(*joined, DomainLock::Patience::tryOnce).isHeld());
    close(release[1]);
    EXPECT_EQ(read(tell[0], &heir, sizeof heir), 0) << "it has not ended";
    close(tell[0]);
    // What else the child had open, the kernel may close a moment later.
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    do {
        reapAllDead(DomainLock(*joined));
    } while (!domain.leftovers().empty() && std::chrono::steady_clock::now() < limit);
}

/// A thread that forks; its child ends at once.
class Forking {
public:
    Forking()
        : thread_([this] {
              id_ = static_cast<pid_t>(syscall(SYS_gettid));
              const pid_t child = fork();
              if (child == 0) _exit(0);
              done_ = true;
              waitpid(child, nullptr, 0);
          }) {}
    ~Forking() { thread_.join(); }

    bool done() const { return done_; }

    /// Returns once it has forked, or waits for something.
    void awaitStandstill() const {
        while (!done_ && !isAsleep()) sched_yield();
    }

private:
    bool isAsleep() const {
        std::string text;
        if (id_ != 0) std::getline(std::ifstream("/proc/self/task/" + std::to_string(id_) + "/stat"), text);
        const size_t behindName = text.rfind(')');
        return behindName != std::string::npos && text.compare(behindName, 3, ") S") == 0;
    }

    std::atomic<pid_t> id_{0};
    std::atomic<bool> done_{false};
    std::thread thread_;
};

TEST_F(FileLockTest, AForkWaitsForTheThreadThatHasIt) {
    const std::shared_ptr<Domain> joined = Domain::join();
    ASSERT_TRUE(joined->lock().lock(FileLock::Patience::wait));
    const Forking forking;
    forking.awaitStandstill();
    EXPECT_FALSE(forking.done()) << "a child was made in the middle of what the lock guards";
    joined->lock().unlock();
}

TEST_F(FileLockTest, AChildCanHaveItThoughAThreadOfItsParentHadIt) {
    const std::shared_ptr<Domain> joined = Domain::join();
    std::atomic<bool> finish{false};
    std::thread busy([&] {
        while (!finish) {
            ASSERT_TRUE(joined->lock().lock(FileLock::Patience::wait));
            joined->lock().unlock();
        }
    });
    for (int i = 0; i < 50; ++i) {
        Child child([&](Line&) {
            EXPECT_TRUE(joined->lock().lock(FileLock::Patience::wait));
            joined->lock().unlock();
        });
        EXPECT_EQ(child.exitStatus(), 0);
    }
    finish = true;
    busy.join();
}

}  // namespace
}  // namespace linx
