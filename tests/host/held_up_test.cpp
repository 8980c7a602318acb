// A process that is held up between any two instructions of an operation, while the others go on.

#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "tests/host/interposed.h"
#include "tests/host/pool_fixture.h"

namespace linx {
namespace {

namespace interposed = linxtest::interposed;

using linxtest::Linx;

/// A child that does something one instruction at a time, and stops when it is done.
class Stepper {
public:
    template <class Body>
    explicit Stepper(Body body) : process_(fork()) {
        if (process_ == 0) {
            if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == -1) _exit(cannot);
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
    bool isPossible() const { return !hasEnded() || WEXITSTATUS(status_) != cannot; }

private:
    static constexpr int cannot = 99;

    bool hasEnded() const { return !WIFSTOPPED(status_); }
    void await() { waitpid(process_, &status_, 0); }

    const pid_t process_;
    int status_ = 0;
    bool stepped_ = false;
};

class HeldUpTest : public linxtest::ArenaDomainTest {
protected:
    void SetUp() override {
        // No memory for more slots than are on the first page: one that has become free is used again at once.
        interposed::atReserve = [](int64_t offset, int64_t) {
            return offset >= slotsOffset + pageBytes && offset < huntsOffset ? ENOSPC : 0;
        };
    }
    void TearDown() override {
        interposed::reset();
        ArenaDomainTest::TearDown();
    }
};

TEST_F(HeldUpTest, AFreerTakesNothingOffTheBooksOfWhoHasComeIntoTheSlotSince) {
    std::vector<Linx> others;
    for (const char* name : {"a", "b", "c", "d", "e"}) others.emplace_back(name);
    constexpr uint32_t size = 1000;
    int later = 0;  ///< instructions
    bool wasHeldUp = true;
    for (; wasHeldUp && !HasFailure(); ++later) {
        SCOPED_TRACE(later);
        Linx home("home");
        Linx freer("freer");
        sendNumber(home, freer.spid, 1, size);
        LinxSignal* signal = nullptr;
        ASSERT_GT(linx_receive_w_tmo(freer, &signal, 0, linxtest::anySignal), 0);
        slotOf(home.spid).returnedLines.storeRelaxed(arena.pageCount() * linesPerPage);  // has plenty
        const uint32_t before = leasedLines(freer.spid);
        const LinxSpid earlier = home.spid;
        uint32_t counted = 0;
        {
            Stepper child([&] { linx_free_buf(freer, &signal); });
            if (!child.isPossible()) GTEST_SKIP() << "no process can be looked at here";
            while (leasedLines(freer.spid) == before && !child.isDone()) child.step();
            ASSERT_FALSE(child.isDone());
            for (int i = 0; i < later && !child.isDone(); ++i) child.step();
            wasHeldUp = !child.isDone();
            home.reset();
            home = Linx("next");
            ASSERT_EQ(indexOf(home.spid), indexOf(earlier));
            counted = leasedLines(home.spid);
        }
        EXPECT_EQ(leasedLines(home.spid), counted);
        freer.reset();  // is the child's, who has died
        others[0] = Linx("freer");
        others[0] = Linx("a");
    }
    EXPECT_GT(later, 5);
}

}  // namespace
}  // namespace linx
