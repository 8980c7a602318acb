// A process that may make only small files: an arena that is larger is an error, and no signal of the kernel's.

#include <sys/resource.h>

#include <cerrno>
#include <csignal>

#include "tests/kit/child.h"
#include "tests/kit/domain_test.h"
#include "tests/kit/signals.h"

namespace {

constexpr uint32_t item = 100;

volatile std::sig_atomic_t delivered = 0;

void deliver(int) {
    delivered = 1;
}

class FileSizeLimit : public ProcessTest {
protected:
    /// Runs `body` in a process that may make files of so many bytes, and is told by SIGXFSZ of larger ones.
    static void within(rlim_t bytes, const std::function<void()>& body) {
        Child child([&](Line&) {
            const rlimit limit = {bytes, RLIM_INFINITY};
            ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
            body();
        });
        EXPECT_EQ(child.exitStatus(), 0);
    }

    static void expectTooLarge() {
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(linx_open("endpoint", 0, nullptr), nullptr);
            EXPECT_EQ(errno, ENOMEM);
        }
    }

    static bool isPending(int signal) {
        sigset_t pending;
        sigpending(&pending);
        return sigismember(&pending, signal) != 0;
    }

    static void block(int signal) {
        sigset_t set;
        sigemptyset(&set);
        sigaddset(&set, signal);
        ASSERT_EQ(sigprocmask(SIG_BLOCK, &set, nullptr), 0);
    }
};

TEST_F(FileSizeLimit, IsAnErrorWhereItWouldEndTheProcess) {
    for (const rlim_t bytes : {0u, 4096u, 1u << 20, 100u << 20}) {
        within(bytes, expectTooLarge);
        EXPECT_EQ(domain.files(), std::vector<std::string>()) << bytes;
    }
}

TEST_F(FileSizeLimit, IsAnErrorWhereTheSignalIsIgnored) {
    within(1 << 20, [] {
        ASSERT_NE(std::signal(SIGXFSZ, SIG_IGN), SIG_ERR);
        expectTooLarge();
        EXPECT_EQ(std::signal(SIGXFSZ, SIG_DFL), SIG_IGN);
        EXPECT_FALSE(isPending(SIGXFSZ));
    });
}

TEST_F(FileSizeLimit, CallsNoHandler) {
    within(1 << 20, [] {
        ASSERT_NE(std::signal(SIGXFSZ, deliver), SIG_ERR);
        expectTooLarge();
        EXPECT_EQ(delivered, 0);
        raise(SIGXFSZ);
        EXPECT_EQ(delivered, 1) << "the signal itself is left alone";
    });
}

TEST_F(FileSizeLimit, LeavesNoSignalBehindWhereItIsBlocked) {
    within(1 << 20, [] {
        block(SIGXFSZ);
        expectTooLarge();
        EXPECT_FALSE(isPending(SIGXFSZ));
        raise(SIGXFSZ);
        expectTooLarge();
        EXPECT_TRUE(isPending(SIGXFSZ)) << "that one was somebody else's";
    });
}

TEST_F(FileSizeLimit, HoldsUpNobodyWhoJoins) {
    const Endpoint maker("maker");
    within(1 << 20, [] {
        Endpoint endpoint("endpoint");
        const LinxSpid own = spidOf(endpoint);
        for (uint32_t i = 0; i < 100; ++i) ASSERT_EQ(send(endpoint, own, item, std::vector<uint32_t>(50000, i)), 0);
        for (uint32_t i = 0; i < 100; ++i) EXPECT_EQ(expectSignal(endpoint, item, 0).word(49999), i);
    });
}

}  // namespace
