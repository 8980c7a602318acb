// What systemd is told by a node that it has started.

#include <sys/un.h>

#include "tests/link/program/running.h"

namespace {

using linktest::ProgramTest;
using linktest::Running;
using linktest::TakenPort;

/// Stands in for systemd.
class Manager {
public:
    explicit Manager(const std::string& path) : socket_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        EXPECT_LT(path.copy(address.sun_path, sizeof address.sun_path - 1), sizeof address.sun_path - 1);
        EXPECT_EQ(bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    }
    ~Manager() { close(socket_); }
    Manager(const Manager&) = delete;
    Manager& operator=(const Manager&) = delete;

    /// The next that it is told, but for signs of life in between. Empty when nothing comes.
    std::string next() {
        for (;;) {
            std::string told = take();
            if (told != alive) return told;
        }
    }
    std::string take() {
        constexpr int longest = 60000;
        pollfd polled = {socket_, POLLIN, 0};
        char text[256];
        const ssize_t size = poll(&polled, 1, longest) == 1 ? recv(socket_, text, sizeof text, 0) : 0;
        return std::string(text, static_cast<size_t>(size > 0 ? size : 0));
    }

    bool hasHeardNothing() {
        char byte;
        return recv(socket_, &byte, 1, MSG_DONTWAIT) == -1;
    }

    static constexpr const char* alive = "WATCHDOG=1";

private:
    int socket_;
};

class ServiceTest : public ProgramTest {
protected:
    void SetUp() override {
        if (!LINXIPC_SYSTEMD) GTEST_SKIP() << "built without libsystemd";
        const std::string address = TakenPort().address();  // and free again
        configure("key = \"link.key\"\nlisten = \"" + address + "\"\n" + linkTo(peerKey, "toPeer"), "own.conf");
        configure("key = \"peer.key\"\n" + linkTo(ownKey, "toOwn") + "connect = \"" + address + "\"\n", "peer.conf");
    }

    const std::string socket = directory + "/notify";
    Manager manager{socket};
    const linxtest::ScopedVariable place{"NOTIFY_SOCKET", socket.c_str()};
};

TEST_F(ServiceTest, ItIsToldOfTheStartOfTheLinksAndOfTheEnd) {
    Running own(directory, "own.conf");
    EXPECT_EQ(manager.next(), "READY=1");
    EXPECT_EQ(manager.next(), "STATUS=0 of 1 links are up");
    {
        const linxtest::ScopedVariable unwatched("NOTIFY_SOCKET", nullptr);
        Running peer(directory, "peer.conf");
        EXPECT_EQ(manager.next(), "STATUS=1 of 1 links are up");
    }
    EXPECT_EQ(manager.next(), "STATUS=0 of 1 links are up");
    EXPECT_EQ(own.end(SIGTERM), 0);
    EXPECT_EQ(manager.next(), "STOPPING=1");
}

TEST_F(ServiceTest, SignsOfLifeComeWhereTheyAreAskedForAlsoWhileNothingHappens) {
    const linxtest::ScopedVariable watched("WATCHDOG_USEC", "100000");
    Running own(directory, "own.conf");
    EXPECT_EQ(manager.take(), "READY=1");
    EXPECT_EQ(manager.take(), "STATUS=0 of 1 links are up");
    for (int i = 0; i < 3; ++i) EXPECT_EQ(manager.take(), Manager::alive);
}

TEST_F(ServiceTest, OneThatCannotStartIsNeverReady) {
    configure("", "own.conf");
    Running own(directory, "own.conf");
    EXPECT_NE(own.end(0), 0);
    EXPECT_TRUE(manager.hasHeardNothing());
}

}  // namespace
