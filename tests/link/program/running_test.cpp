// Two nodes, as processes.

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>

#include <csignal>
#include <optional>

#include "tests/link/program/program_fixture.h"

namespace {

using linktest::ProgramTest;
using linktest::TakenPort;

/// linx-link at work, and what it has logged. Killed when the test has done with it.
class Running {
public:
    Running(const std::string& directory, const std::string& configuration) {
        int ends[2];
        EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
        const std::string path = directory + "/" + configuration;
        const char* const arguments[] = {LINX_LINK, path.c_str(), nullptr};
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, ends[1], STDERR_FILENO);
        EXPECT_EQ(posix_spawn(&process_, LINX_LINK, &actions, nullptr, const_cast<char**>(arguments), environ), 0);
        posix_spawn_file_actions_destroy(&actions);
        close(ends[1]);
        log_ = ends[0];
    }
    ~Running() {
        if (process_ != -1) end(SIGKILL);
        close(log_);
    }
    Running(const Running&) = delete;
    Running& operator=(const Running&) = delete;

    /// Reads on until a line is that text, behind the program's name. False when it ends before, or takes too long.
    bool hasLogged(const std::string& line) {
        const std::string text = "linx-link: " + line + "\n";
        for (;;) {
            const size_t at = unread_.find(text);
            if (at != std::string::npos) {
                unread_.erase(0, at + text.size());
                return true;
            }
            if (!readMore()) {
                ADD_FAILURE() << "not logged: " << line << "\nbut: " << unread_;
                return false;
            }
        }
    }
    void send(int signal) const { kill(process_, signal); }
    /// Its exit status, or 256 and the number of the signal that ended it.
    int end(int signal) {
        send(signal);
        int status = 0;
        waitpid(process_, &status, 0);
        process_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 256 + WTERMSIG(status);
    }

private:
    bool readMore() {
        constexpr int longest = 60000;
        pollfd polled = {log_, POLLIN, 0};
        char part[4096];
        const ssize_t size = poll(&polled, 1, longest) == 1 ? read(log_, part, sizeof part) : 0;
        if (size > 0) unread_.append(part, static_cast<size_t>(size));
        return size > 0;
    }

    pid_t process_ = -1;
    int log_ = -1;
    std::string unread_;
};

class RunningTest : public ProgramTest {
protected:
    RunningTest() {
        setenv("LINX_LOG", "stderr", 1);
        unsetenv("LINX_LOG_LEVEL");
        address = TakenPort().address();  // and free again
        configure("key = \"link.key\"\nlisten = \"" + address + "\"\n" + linkTo(peerKey, "toPeer"), "own.conf");
        dialFrom("peer.key");
    }
    void dialFrom(const std::string& key) {
        configure(
            "key = \"" + key + "\"\n" + linkTo(ownKey, "toOwn") + "connect = \"" + address + "\"\ntolerance = 500\n",
            "peer.conf");
    }

    std::string address;
};

const std::string machine = std::to_string(8 * sizeof(void*)) + " bits, " +
                            (__BYTE_ORDER__ == __ORDER_BIG_ENDIAN__ ? "highest" : "lowest") + " byte first";

TEST_F(RunningTest, TwoNodesFindEachOtherAndOneTakesItsLeave) {
    Running own(directory, "own.conf");
    Running peer(directory, "peer.conf");
    EXPECT_TRUE(own.hasLogged("toPeer is up; over there: " + machine));
    EXPECT_TRUE(peer.hasLogged("toOwn is up; over there: " + machine));
    EXPECT_EQ(own.end(SIGTERM), 0);
    EXPECT_TRUE(own.hasLogged("toPeer is down: one side took its leave"));
    EXPECT_TRUE(peer.hasLogged("toOwn is down: one side took its leave"));
    EXPECT_TRUE(peer.hasLogged("toOwn cannot be dialled: nobody listens there"));
    EXPECT_EQ(peer.end(SIGINT), 0);
}

TEST_F(RunningTest, OneThatIsKilledAndBackIsFoundAgainFromEitherSide) {
    std::optional<Running> own(std::in_place, directory, "own.conf");
    std::optional<Running> peer(std::in_place, directory, "peer.conf");
    EXPECT_TRUE(own->hasLogged("toPeer is up; over there: " + machine));
    EXPECT_TRUE(peer->hasLogged("toOwn is up; over there: " + machine));
    own->end(SIGKILL);
    EXPECT_TRUE(peer->hasLogged("toOwn is down: the connection was lost"));
    own.emplace(directory, "own.conf");
    EXPECT_TRUE(own->hasLogged("toPeer is up; over there: " + machine));
    EXPECT_TRUE(peer->hasLogged("toOwn is up; over there: " + machine));
    peer->end(SIGKILL);
    EXPECT_TRUE(own->hasLogged("toPeer is down: the connection was lost"));
    peer.emplace(directory, "peer.conf");
    EXPECT_TRUE(own->hasLogged("toPeer is up; over there: " + machine));
    EXPECT_TRUE(peer->hasLogged("toOwn is up; over there: " + machine));
}

TEST_F(RunningTest, OneThatIsStoppedCountsAsSilentAndIsFoundAgain) {
    Running own(directory, "own.conf");
    Running peer(directory, "peer.conf");
    EXPECT_TRUE(peer.hasLogged("toOwn is up; over there: " + machine));
    own.send(SIGSTOP);
    EXPECT_TRUE(peer.hasLogged("toOwn is down: the peer was silent"));
    own.send(SIGCONT);
    EXPECT_TRUE(peer.hasLogged("toOwn is up; over there: " + machine));
}

TEST_F(RunningTest, OneWithAnotherKeyIsTurnedAwayAndBothTellIt) {
    keygen("strange.key");
    dialFrom("strange.key");
    Running own(directory, "own.conf");
    Running stranger(directory, "peer.conf");
    EXPECT_TRUE(own.hasLogged("turned away for their keys so far: 1"));
    EXPECT_TRUE(stranger.hasLogged("toOwn cannot be dialled: the peer does not know this node's key"));
}

TEST_F(RunningTest, WhereTheAddressIsTakenItDoesNotStart) {
    const TakenPort taken;
    configure("key = \"link.key\"\nlisten = \"" + taken.address() + "\"\n" + linkTo(peerKey, "toPeer"));
    const linktest::Transcript second = run("link.conf");
    EXPECT_EQ(second.status, 1);
    EXPECT_EQ(second.errors, "link.conf: cannot listen at " + taken.address() + ": Address already in use\n");
}

TEST_F(RunningTest, AWrongConfigurationDoesNotStart) {
    configure("");
    const linktest::Transcript transcript = run("link.conf");
    EXPECT_EQ(transcript.status, 1);
    EXPECT_NE(transcript.errors, "");
}

}  // namespace
