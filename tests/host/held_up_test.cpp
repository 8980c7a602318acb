// A process that is held up between any two instructions of an operation, while the others go on.

#include <dlfcn.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <string>
#include <thread>

#include "host/system/forks.h"
#include "tests/host/pool_fixture.h"
#include "tests/kit/file_memory.h"
#include "tests/kit/shared.h"

namespace linx {
namespace {

using linxtest::KnownEndpoint;

/// A child that does something one instruction at a time, and stops when it is done.
class Stepper {
public:
    template <class Body>
    explicit Stepper(Body body) : Stepper([] {}, body, fork) {}
    /// It does `prepare` as any other process does.
    template <class Prepare, class Body>
    Stepper(Prepare prepare, Body body, pid_t (*makeProcess)()) : process_(makeProcess()) {
        if (process_ == 0) {
            if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == -1) _exit(cannot);
            prepare();
            raise(SIGSTOP);
            body();
            raise(SIGSTOP);
            _exit(0);
        }
        await();
    }
    ~Stepper() {
        while (!hasEnded()) {
            ptrace(PTRACE_CONT, process_, nullptr, nullptr);
            await();
        }
    }
    Stepper(const Stepper&) = delete;
    Stepper& operator=(const Stepper&) = delete;

    void step() {
        ptrace(PTRACE_SINGLESTEP, process_, nullptr, nullptr);
        await();
        stepped_ = true;
    }
    /// A step stops it by another signal than the one that it raises.
    bool isDone() const { return stepped_ && (hasEnded() || WSTOPSIG(status_) == SIGSTOP); }
    pid_t process() const { return process_; }
    bool isPossible() const { return !hasEnded() || WEXITSTATUS(status_) != cannot; }

private:
    static constexpr int cannot = 99;

    bool hasEnded() const { return !WIFSTOPPED(status_); }
    void await() { waitpid(process_, &status_, 0); }

    const pid_t process_;
    int status_ = 0;
    bool stepped_ = false;
};

/// Few, so that one that has become free is used again at once. Set before anything is opened, being a base that
/// comes first.
struct OnlySevenSlots {
    const linxtest::FewSlots few{7};
};

class HeldUpTest : private OnlySevenSlots, public linxtest::ArenaDomainTest {};

TEST_F(HeldUpTest, AFreerTakesNothingOffTheBooksOfWhoHasComeIntoTheSlotSince) {
    std::vector<KnownEndpoint> others;
    for (const char* name : {"a", "b", "c", "d", "e"}) others.emplace_back(name);
    constexpr uint32_t size = 1000;
    int later = 0;  ///< instructions
    bool wasHeldUp = true;
    for (; wasHeldUp && !HasFailure(); ++later) {
        SCOPED_TRACE(later);
        KnownEndpoint home("home");
        KnownEndpoint freer("freer");
        sendNumber(home, freer.spid, 1, size);
        LinxSignal* signal = nullptr;
        ASSERT_GT(linx_receive_w_tmo(freer, &signal, 0, anySignal), 0);
        slotOf(home.spid).returnedLines.storeRelaxed(arena.pageCount() * linesPerPage);  // has plenty
        const uint32_t before = leasedLines(freer.spid);
        const Spid earlier = home.spid;
        uint32_t counted = 0;
        {
            Stepper child([&] { linx_free_buf(freer, &signal); });
            if (!child.isPossible()) GTEST_SKIP() << "no process can be looked at here";
            while (leasedLines(freer.spid) == before && !child.isDone()) child.step();
            ASSERT_FALSE(child.isDone());
            for (int i = 0; i < later && !child.isDone(); ++i) child.step();
            wasHeldUp = !child.isDone();
            home.close();
            home = KnownEndpoint("next");
            ASSERT_EQ(indexOf(home.spid), indexOf(earlier));
            counted = leasedLines(home.spid);
        }
        EXPECT_EQ(leasedLines(home.spid), counted);
        EXPECT_EQ(linx_close(freer.release()), -1) << "it is the child's, who has died";
        others[0] = KnownEndpoint("freer");
        others[0] = KnownEndpoint("a");
    }
    EXPECT_GT(later, 5);
}

/// Two threads of a process that nobody told of its fork.
struct Newcomers {
    std::atomic<pid_t> second;
    std::atomic<bool> secondMayGo;
    std::atomic<bool> secondIsDone;
    std::atomic<bool> bothAreDone;
    std::atomic<bool> isJudged;
    std::atomic<bool> isDisowned;  ///< what the second has made
};

void await(const std::atomic<bool>& said) {
    while (!said) std::this_thread::yield();
}

void beSecond(Newcomers& both) {
    both.second = gettid();
    await(both.secondMayGo);
    forks::acknowledge();
    const uint32_t made = forks::generation();
    both.secondIsDone = true;
    await(both.bothAreDone);
    both.isDisowned = forks::isSmuggled(made);
    both.isJudged = true;
}

bool isAsleep(pid_t process, pid_t thread) {
    std::string text;
    std::getline(std::ifstream("/proc/" + std::to_string(process) + "/task/" + std::to_string(thread) + "/stat"),
                 text);
    const size_t behindName = text.rfind(')');
    return behindName != std::string::npos && text.compare(behindName, 3, ") S") == 0;
}

TEST(HeldUp, AThreadThatAcknowledgesAForkDisownsNothingOfAnother) {
    const auto forkUnannounced = reinterpret_cast<pid_t (*)()>(dlsym(RTLD_DEFAULT, "_Fork"));
    if (forkUnannounced == nullptr) GTEST_SKIP() << "no such fork here";
    int later = 0;  ///< instructions
    bool wasHeldUp = true;
    for (; wasHeldUp && !testing::Test::HasFailure(); ++later) {
        SCOPED_TRACE(later);
        const Shared<Newcomers> both;
        const auto startSecond = [&] {
            std::thread([&] { beSecond(*both); }).detach();
            while (both->second == 0) std::this_thread::yield();
        };
        Stepper child(
            startSecond, [] { forks::acknowledge(); }, forkUnannounced);
        if (!child.isPossible()) GTEST_SKIP() << "no process can be looked at here";
        for (int i = 0; i < later && !child.isDone(); ++i) child.step();
        wasHeldUp = !child.isDone();
        both->secondMayGo = true;
        while (!both->secondIsDone && !isAsleep(child.process(), both->second)) std::this_thread::yield();
        while (!child.isDone()) child.step();
        await(both->secondIsDone);
        both->bothAreDone = true;
        await(both->isJudged);
        EXPECT_FALSE(both->isDisowned);
    }
    EXPECT_GT(later, 5);
}

}  // namespace
}  // namespace linx
