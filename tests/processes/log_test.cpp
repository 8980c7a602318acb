// What an open says in the log. The log is set up once a process: this program leaves all opening to its children.

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

#include "tests/processes/support/child.h"
#include "tests/processes/support/process_test.h"
#include "tests/processes/support/signals.h"

namespace {

using linxtest::ScopedVariable;

class Log : public ProcessTest {
protected:
    using Lines = std::vector<std::string>;

    /// The lines that a process logs that does this, without its name.
    static Lines linesOf(const std::function<void()>& body) {
        const int file = memfd_create("log", MFD_CLOEXEC);
        Child child([&](Line&) {
            const int own = dup(STDERR_FILENO);
            dup2(file, STDERR_FILENO);
            body();
            dup2(own, STDERR_FILENO);
        });
        EXPECT_EQ(0, child.exitStatus());
        std::string text(4096, ' ');
        text.resize(static_cast<size_t>(pread(file, text.data(), text.size(), 0)));
        close(file);
        Lines lines;
        const std::string prefix = std::string(program_invocation_short_name) + ": linxhost: ";
        for (size_t end; (end = text.find('\n')) != std::string::npos; text.erase(0, end + 1)) {
            EXPECT_EQ(0u, text.find(prefix)) << text;
            lines.push_back(text.substr(prefix.size(), end - prefix.size()));
        }
        return lines;
    }

    static void openAndClose(const char* name) {
        LINX* linx = linx_open(name, 0, nullptr);
        EXPECT_EQ(0, linx_close(linx));
    }

    std::string asUser() const { return " as user " + std::to_string(geteuid()); }

    const ScopedVariable log{"LINX_LOG", "stderr"};
    const ScopedVariable level{"LINX_LOG_LEVEL", nullptr};
    const ScopedVariable megabytes{"LINX_ARENA_MB", nullptr};
    const ScopedVariable looking{"LINX_SPIN_US", nullptr};
};

TEST_F(Log, SaysOnceWhichDomainWasMadeOrJoinedAndAsWhom) {
    const auto openSome = [] {
        const Endpoint first("first");
        const Endpoint second("second");
    };
    EXPECT_EQ(Lines{"made the domain " + domain.path() + asUser()}, linesOf(openSome));
    EXPECT_EQ(Lines{"joined the domain " + domain.path() + asUser()}, linesOf(openSome));
}

TEST_F(Log, SaysNothingOfThatWhereNotableEventsAreMaskedOut) {
    const ScopedVariable errorsOnly("LINX_LOG_LEVEL", "2");
    EXPECT_EQ(Lines{}, linesOf([] { openAndClose("endpoint"); }));
    EXPECT_EQ(Lines{}, linesOf([] { EXPECT_EQ(nullptr, linx_open(std::string(300, 'x').c_str(), 0, nullptr)); }));
}

/// The domain that an open is tried in, and what it answers there.
struct Trial {
    std::string domain;
    int error;
    std::string text;
};

TEST_F(Log, SaysOfEachFailedOpenWhichDomainWasMeant) {
    const std::string file = domain.pathOf("file");
    const std::string loop = domain.pathOf("loop");
    close(creat(file.c_str(), 0600));
    ASSERT_EQ(0, symlink("loop", loop.c_str()));
    const Trial trials[] = {{domain.path() + "/missing/domain", ENOENT, "No such file or directory"},
                            {file, ENOTDIR, "Not a directory"},
                            {file + "/domain", ENOTDIR, "Not a directory"},
                            {loop + "/domain", ELOOP, "Too many levels of symbolic links"},
                            {"neither/path/nor/word", EINVAL, "Invalid argument"}};
    for (const Trial& trial : trials) {
        const ScopedVariable chosen("LINX_DOMAIN", trial.domain.c_str());
        const Lines lines = linesOf([&] {
            for (int i = 0; i < 2; ++i) {
                EXPECT_EQ(nullptr, linx_open("endpoint", 0, nullptr));
                EXPECT_EQ(trial.error, errno);
            }
        });
        const std::string line = "cannot open 'endpoint' in the domain " + trial.domain + ": " + trial.text;
        EXPECT_EQ((Lines{line, line}), lines);
    }
}

TEST_F(Log, SaysOfATakenNameWhereItIsTaken) {
    const auto openTwice = [] {
        const Endpoint endpoint("endpoint");
        EXPECT_EQ(nullptr, linx_open("endpoint", 0, nullptr));
        EXPECT_EQ(EADDRINUSE, errno);
    };
    const std::string refused = "cannot open 'endpoint' in the domain " + domain.path() + ": Address already in use";
    EXPECT_EQ((Lines{"made the domain " + domain.path() + asUser(), refused}), linesOf(openTwice));
}

TEST_F(Log, SaysWhichVariableIsSetToWhatItCannotBe) {
    const ScopedVariable errorsOnly("LINX_LOG_LEVEL", "2");
    const auto open = [] { openAndClose("endpoint"); };
    for (const char* bad : {"-1", "abc", "3", "16385", "99999999999999999999", "8M"}) {
        const ScopedVariable chosen("LINX_ARENA_MB", bad);
        EXPECT_EQ(
            Lines{std::string("LINX_ARENA_MB is '") + bad + "', which is no number from 4 to 16384: 256 is taken"},
            linesOf(open));
        ASSERT_EQ(0, unlink(domain.pathOf("arena").c_str()));
    }
    for (const char* bad : {"-1", "abc", "1001", "1.5"}) {
        const ScopedVariable chosen("LINX_SPIN_US", bad);
        EXPECT_EQ(Lines{std::string("LINX_SPIN_US is '") + bad + "', which is no number from 0 to 1000: 50 is taken"},
                  linesOf(open));
    }
    const ScopedVariable right("LINX_ARENA_MB", "8");
    const ScopedVariable alsoRight("LINX_SPIN_US", "0");
    EXPECT_EQ(Lines{}, linesOf(open));
}

/// Makes standard error a pipe that is full, and that nobody reads.
void blockStandardError() {
    int ends[2];
    ASSERT_EQ(0, pipe2(ends, O_NONBLOCK));
    while (write(ends[1], "x", 1) == 1) {
    }
    ASSERT_EQ(0, fcntl(ends[1], F_SETFL, 0));
    ASSERT_NE(-1, dup2(ends[1], STDERR_FILENO));
}

TEST_F(Log, HoldsNobodyUpThatIsNotRead) {
    const ScopedVariable errorsOnly("LINX_LOG_LEVEL", "2");
    Child first([](Line&) { openAndClose("first"); });
    ASSERT_EQ(0, first.exitStatus());
    Child blocked([](Line& parent) {
        setenv("LINX_SPIN_US", "many", 1);
        blockStandardError();
        parent.tell();
        linx_open("blocked", 0, nullptr);
    });
    blocked.hear();
    blocked.awaitSleep();
    const Child other([](Line&) { openAndClose("other"); });
    EXPECT_TRUE(other.endsInTime());
    blocked.kill9();
}

TEST_F(Log, SaysSoOfItsOwnVariables) {
    const ScopedVariable bad("LINX_LOG_LEVEL", "zz");
    EXPECT_EQ((Lines{"LINX_LOG_LEVEL is 'zz', which is no mask: 530 is taken",
                     "made the domain " + domain.path() + asUser()}),
              linesOf([] { openAndClose("endpoint"); }));
}

}  // namespace
