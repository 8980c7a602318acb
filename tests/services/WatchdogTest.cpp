#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <utility>

#include "platform/Watchdog.h"

namespace {

/// Stands for the service manager: a datagram socket in the abstract namespace, which leaves no file behind.
class WatchdogTest : public testing::Test {
protected:
    WatchdogTest() : manager(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
        const sa_family_t family = AF_UNIX;  // an address of the family alone: the kernel picks a free name
        EXPECT_EQ(bind(manager, reinterpret_cast<const sockaddr*>(&family), sizeof family), 0);
        unsetenv("NOTIFY_SOCKET");
        unsetenv("WATCHDOG_USEC");
        unsetenv("WATCHDOG_PID");
    }

    ~WatchdogTest() override {
        if (manager != -1) close(manager);
    }

    void askForNotices() const {
        sockaddr_un address{};
        socklen_t size = sizeof address;
        ASSERT_EQ(getsockname(manager, reinterpret_cast<sockaddr*>(&address), &size), 0);
        const std::string name(address.sun_path + 1, size - sizeof address.sun_family - 1);
        setenv("NOTIFY_SOCKET", ("@" + name).c_str(), 1);
    }

    static void askForAWatchdog() { setenv("WATCHDOG_USEC", "30000000", 1); }

    std::string received() const {
        char text[256];
        const ssize_t size = recv(manager, text, sizeof text, 0);
        return size < 0 ? "" : std::string(text, static_cast<std::size_t>(size));
    }

    int manager;
    Watchdog watchdog;
};

TEST_F(WatchdogTest, DoesNothingWhereNobodyAsks) {
    EXPECT_EQ(watchdog.PetWatchdog(), 0);
}

TEST_F(WatchdogTest, DoesNothingWhereTheManagerWantsNoWatchdog) {
    askForNotices();
    EXPECT_EQ(watchdog.PetWatchdog(), 0);
    EXPECT_EQ(received(), "");
}

#ifdef LINXIPC_SYSTEMD
TEST_F(WatchdogTest, TellsTheManagerEachTime) {
    askForNotices();
    askForAWatchdog();
    for (int turn = 0; turn < 2; ++turn) {
        EXPECT_EQ(watchdog.PetWatchdog(), 0);
        EXPECT_EQ(received(), "WATCHDOG=1");
    }
}

TEST_F(WatchdogTest, DoesNothingWhereTheWatchdogIsAnotherProcesses) {
    askForNotices();
    askForAWatchdog();
    setenv("WATCHDOG_PID", std::to_string(getppid()).c_str(), 1);
    EXPECT_EQ(watchdog.PetWatchdog(), 0);
    EXPECT_EQ(received(), "");
}

TEST_F(WatchdogTest, GivesTheErrorAsAPositiveNumberWhereTheManagerIsGone) {
    askForNotices();
    askForAWatchdog();
    close(std::exchange(manager, -1));
    EXPECT_EQ(watchdog.PetWatchdog(), ECONNREFUSED);
}

TEST_F(WatchdogTest, GivesAnErrorWhereTheIntervalCannotBeRead) {
    askForNotices();
    setenv("WATCHDOG_USEC", "soon", 1);
    EXPECT_EQ(watchdog.PetWatchdog(), EINVAL);
}
#else
TEST_F(WatchdogTest, DoesNothingInABuildWithoutTheServiceManager) {
    askForNotices();
    askForAWatchdog();
    EXPECT_EQ(watchdog.PetWatchdog(), 0);
    EXPECT_EQ(received(), "");
}
#endif

}  // namespace
