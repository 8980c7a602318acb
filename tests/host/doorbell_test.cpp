#include "host/mailbox/doorbell.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/stat.h>

#include <cerrno>
#include <fstream>

#include "host/system/scoped_descriptor.h"
#include "tests/host/interposed.h"
#include "tests/kit/domain_test.h"
#include "tests/kit/readable.h"

namespace linx {
namespace {

const Spid spid = makeSpid(SlotIndex{2}, 1);

class DoorbellTest : public linxtest::DomainTest {
protected:
    void TearDown() override {
        doorbell::remove(directory.get(), spid);
        directory.reset();
        DomainTest::TearDown();
    }

    int make() const { return doorbell::make(directory.get(), spid, 0600); }
    int openForWriting() const { return doorbell::open(directory.get(), spid); }

    ScopedDescriptor directory{open(domain.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
};

/// A doorbell whose endpoint has ended.
class DeadDoorbellTest : public DoorbellTest {
protected:
    DeadDoorbellTest() {
        const ScopedDescriptor own(make());
        peer.reset(openForWriting());
        sigemptyset(&sigpipe);
        sigaddset(&sigpipe, SIGPIPE);
    }
    void TearDown() override {
        peer.reset();
        DoorbellTest::TearDown();
    }

    static bool isPending() {
        sigset_t pending;
        sigpending(&pending);
        return sigismember(&pending, SIGPIPE) != 0;
    }

    ScopedDescriptor peer;
    sigset_t sigpipe;
};

uint32_t drain(int doorbell) {
    uint32_t records[doorbell::capacity];
    return doorbell::drain(doorbell, records);
}

int caught = 0;
void catchSignal(int) {
    ++caught;
}

/// Gives SIGPIPE a disposition, and the one before back with its scope.
class ScopedDisposition {
public:
    explicit ScopedDisposition(void (*handler)(int)) {
        struct sigaction action = {};
        action.sa_handler = handler;
        sigaction(SIGPIPE, &action, &before_);
    }
    ~ScopedDisposition() { sigaction(SIGPIPE, &before_, nullptr); }

private:
    struct sigaction before_ = {};
};

TEST_F(DoorbellTest, ADoorbellIsANamedPipeOfTheModeAskedForWhateverTheUmask) {
    const mode_t before = umask(0077);
    const ScopedDescriptor own(doorbell::make(directory.get(), spid, 0660));
    umask(before);
    struct stat status;
    ASSERT_EQ(stat(domain.pathOf("bell.00002002").c_str(), &status), 0);
    EXPECT_TRUE(S_ISFIFO(status.st_mode));
    EXPECT_EQ(status.st_mode & 0777u, 0660u);
}

TEST_F(DoorbellTest, ALeftoverOfTheNameIsReplaced) {
    const ScopedDescriptor old(make());
    const ScopedDescriptor fresh(make());
    ASSERT_NE(fresh.get(), -1);
    const ScopedDescriptor peer(openForWriting());
    EXPECT_EQ(doorbell::ring(peer.get()), 0);
    EXPECT_TRUE(isReadable(fresh.get()));
    EXPECT_FALSE(isReadable(old.get()));
}

TEST_F(DoorbellTest, ARingIsSeenUntilTheDoorbellIsDrained) {
    const ScopedDescriptor own(make());
    const ScopedDescriptor peer(openForWriting());
    EXPECT_FALSE(isReadable(own.get()));
    EXPECT_EQ(doorbell::ring(peer.get()), 0);
    EXPECT_EQ(doorbell::ring(peer.get()), 0);
    EXPECT_TRUE(isReadable(own.get()));
    drain(own.get());
    EXPECT_FALSE(isReadable(own.get()));
    drain(own.get());
}

TEST_F(DoorbellTest, AFullDoorbellTakesNoMoreAndThatIsNoError) {
    const ScopedDescriptor own(make());
    const ScopedDescriptor peer(openForWriting());
    while (write(peer.get(), "", 1) == 1) {
    }
    ASSERT_EQ(errno, EAGAIN);
    EXPECT_EQ(doorbell::ring(peer.get()), 0);
    EXPECT_FALSE(doorbell::isDead(peer.get()));
    drain(own.get());
    int left = -1;
    EXPECT_EQ(ioctl(own.get(), FIONREAD, &left), 0);
    EXPECT_EQ(left, 0);
}

TEST_F(DoorbellTest, ADoorbellThatNobodyHoldsOrThatIsGoneCannotBeOpened) {
    EXPECT_EQ(openForWriting(), -1);
    EXPECT_EQ(errno, ENOENT);
    ScopedDescriptor own(make());
    own.reset();
    EXPECT_EQ(openForWriting(), -1);
    EXPECT_EQ(errno, ENXIO);
}

TEST_F(DoorbellTest, ASymbolicLinkIsNoDoorbell) {
    ASSERT_EQ(symlink("elsewhere", domain.pathOf("bell.00002002").c_str()), 0);
    EXPECT_EQ(openForWriting(), -1);
    EXPECT_EQ(errno, EPROTO);
}

TEST_F(DoorbellTest, AFileThatSomebodyLinkedThereIsNoDoorbell) {
    const std::string file = domain.pathOf("file");
    ASSERT_TRUE(std::ofstream(file) << "text");
    ASSERT_EQ(link(file.c_str(), domain.pathOf("bell.00002002").c_str()), 0);
    EXPECT_EQ(openForWriting(), -1);
    EXPECT_EQ(errno, EPROTO);
    const ScopedDescriptor own(make());
    EXPECT_NE(own.get(), -1);
    std::string text;
    std::ifstream(file) >> text;
    EXPECT_EQ(text, "text");
    unlink(file.c_str());
}

TEST_F(DoorbellTest, AFileThatComesInItsPlaceAtTheLastMomentIsNoDoorbell) {
    const ScopedDescriptor own(make());
    const std::string file = domain.pathOf("file");
    const std::string inItsPlace = domain.pathOf("bell.00002002");
    ASSERT_TRUE(std::ofstream(file) << "text");
    linxtest::interposed::atOpen = [&](const char*) {
        unlink(inItsPlace.c_str());
        EXPECT_EQ(link(file.c_str(), inItsPlace.c_str()), 0);
    };
    EXPECT_EQ(openForWriting(), -1);
    EXPECT_EQ(errno, EPROTO);
    linxtest::interposed::reset();
    unlink(file.c_str());
}

TEST_F(DoorbellTest, ADoorbellIsDeadOnceTheLastReaderIsGone) {
    ScopedDescriptor own(make());
    ScopedDescriptor copy(dup(own.get()));
    const ScopedDescriptor peer(openForWriting());
    EXPECT_FALSE(doorbell::isDead(peer.get()));
    own.reset();
    EXPECT_FALSE(doorbell::isDead(peer.get()));
    copy.reset();
    EXPECT_TRUE(doorbell::isDead(peer.get()));
}

TEST_F(DeadDoorbellTest, RingingItRaisesNoSigpipeByDefault) {
    const ScopedDisposition disposition(SIG_DFL);
    EXPECT_EQ(doorbell::ring(peer.get()), EPIPE);
    EXPECT_FALSE(isPending());
}

TEST_F(DeadDoorbellTest, RingingItCallsNoHandler) {
    const ScopedDisposition disposition(catchSignal);
    caught = 0;
    EXPECT_EQ(doorbell::ring(peer.get()), EPIPE);
    EXPECT_EQ(caught, 0);
}

TEST_F(DeadDoorbellTest, RingingItLeavesNothingBehindWhereSigpipeIsIgnored) {
    const ScopedDisposition disposition(SIG_IGN);
    EXPECT_EQ(doorbell::ring(peer.get()), EPIPE);
    EXPECT_FALSE(isPending());
}

TEST_F(DeadDoorbellTest, RingingItLeavesNothingPendingWhereSigpipeIsBlocked) {
    sigset_t before;
    pthread_sigmask(SIG_BLOCK, &sigpipe, &before);
    EXPECT_EQ(doorbell::ring(peer.get()), EPIPE);
    EXPECT_FALSE(isPending());
    sigset_t now;
    pthread_sigmask(SIG_SETMASK, &before, &now);
    EXPECT_EQ(sigismember(&now, SIGPIPE), 1);
}

TEST_F(DeadDoorbellTest, ASigpipeThatWasPendingBeforeStaysPending) {
    sigset_t before;
    pthread_sigmask(SIG_BLOCK, &sigpipe, &before);
    raise(SIGPIPE);
    ASSERT_TRUE(isPending());
    EXPECT_EQ(doorbell::ring(peer.get()), EPIPE);
    EXPECT_TRUE(isPending());
    const timespec now = {0, 0};
    EXPECT_EQ(sigtimedwait(&sigpipe, nullptr, &now), SIGPIPE);
    EXPECT_FALSE(isPending());
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

TEST_F(DeadDoorbellTest, TheMaskIsAsItWas) {
    sigset_t mask;
    EXPECT_EQ(doorbell::ring(peer.get()), EPIPE);
    pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    EXPECT_EQ(sigismember(&mask, SIGPIPE), 0);
}

}  // namespace
}  // namespace linx
