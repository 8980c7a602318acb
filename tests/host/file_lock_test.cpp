#include "host/system/file_lock.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <string>
#include <thread>

#include "host/arena/domain.h"
#include "tests/support/domain_fixture.h"

namespace linx {
namespace {

using FileLockTest = linxtest::DomainTest;

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
        const pid_t child = fork();
        if (child == 0) {
            const bool got = joined->lock().lock(FileLock::Patience::wait);
            joined->lock().unlock();
            _exit(got ? 0 : 1);
        }
        int status = -1;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
    }
    finish = true;
    busy.join();
}

}  // namespace
}  // namespace linx
