// What an open says in the log. The log is set up once a process: this program leaves all opening to its children.

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

#include "tests/kit/child.h"
#include "tests/kit/domain_test.h"
#include "tests/kit/signals.h"

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
        EXPECT_EQ(child.exitStatus(), 0);
        std::string text(4096, ' ');
        text.resize(static_cast<size_t>(pread(file, text.data(), text.size(), 0)));
        close(file);
        Lines lines;
        const std::string prefix = std::string(program_invocation_short_name) + ": linxhost: ";
        for (size_t end; (end = text.find('\n')) != std::string::npos; text.erase(0, end + 1)) {
            EXPECT_EQ(text.find(prefix), 0u) << text;
            lines.push_back(text.substr(prefix.size(), end - prefix.size()));
        }
        return lines;
    }

    static void openAndClose(const char* name) {
        LINX* linx = linx_open(name, 0, nullptr);
        EXPECT_EQ(linx_close(linx), 0);
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
    EXPECT_EQ(linesOf(openSome), Lines{"made the domain " + domain.path() + asUser()});
    EXPECT_EQ(linesOf(openSome), Lines{"joined the domain " + domain.path() + asUser()});
}

TEST_F(Log, SaysNothingOfThatWhereNotableEventsAreMaskedOut) {
    const ScopedVariable errorsOnly("LINX_LOG_LEVEL", "2");
    EXPECT_EQ(linesOf([] { openAndClose("endpoint"); }), Lines{});
    EXPECT_EQ(linesOf([] { EXPECT_EQ(linx_open(std::string(300, 'x').c_str(), 0, nullptr), nullptr); }), Lines{});
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
    ASSERT_EQ(symlink("loop", loop.c_str()), 0);
    const Trial trials[] = {{domain.path() + "/missing/domain", ENOENT, "No such file or directory"},
                            {file, ENOTDIR, "Not a directory"},
                            {file + "/domain", ENOTDIR, "Not a directory"},
                            {loop + "/domain", ELOOP, "Too many levels of symbolic links"},
                            {"neither/path/nor/word", EINVAL, "Invalid argument"}};
    for (const Trial& trial : trials) {
        const ScopedVariable chosen("LINX_DOMAIN", trial.domain.c_str());
        const Lines lines = linesOf([&] {
            for (int i = 0; i < 2; ++i) {
                EXPECT_EQ(linx_open("endpoint", 0, nullptr), nullptr);
                EXPECT_EQ(errno, trial.error);
            }
        });
        const std::string line = "cannot open 'endpoint' in the domain " + trial.domain + ": " + trial.text;
        EXPECT_EQ(lines, (Lines{line, line}));
    }
}

TEST_F(Log, SaysOfATakenNameWhereItIsTaken) {
    const auto openTwice = [] {
        const Endpoint endpoint("endpoint");
        EXPECT_EQ(linx_open("endpoint", 0, nullptr), nullptr);
        EXPECT_EQ(errno, EADDRINUSE);
    };
    const std::string refused = "cannot open 'endpoint' in the domain " + domain.path() + ": Address already in use";
    EXPECT_EQ(linesOf(openTwice), (Lines{"made the domain " + domain.path() + asUser(), refused}));
}

TEST_F(Log, SaysWhichVariableIsSetToWhatItCannotBe) {
    const ScopedVariable errorsOnly("LINX_LOG_LEVEL", "2");
    const auto open = [] { openAndClose("endpoint"); };
    for (const char* bad : {"-1", "abc", "3", "16385", "99999999999999999999", "8M"}) {
        const ScopedVariable chosen("LINX_ARENA_MB", bad);
        EXPECT_EQ(linesOf(open), Lines{std::string("LINX_ARENA_MB is '") + bad +
                                       "', which is no number from 4 to 16384: 256 is taken"});
        ASSERT_EQ(unlink(domain.pathOf("arena").c_str()), 0);
    }
    for (const char* bad : {"-1", "abc", "1001", "1.5"}) {
        const ScopedVariable chosen("LINX_SPIN_US", bad);
        EXPECT_EQ(linesOf(open), Lines{std::string("LINX_SPIN_US is '") + bad +
                                       "', which is no number from 0 to 1000: 50 is taken"});
    }
    const ScopedVariable right("LINX_ARENA_MB", "8");
    const ScopedVariable alsoRight("LINX_SPIN_US", "0");
    EXPECT_EQ(linesOf(open), Lines{});
}

/// Makes standard error a pipe that is full, and that nobody reads.
void blockStandardError() {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_NONBLOCK), 0);
    while (write(ends[1], "x", 1) == 1) {
    }
    ASSERT_EQ(fcntl(ends[1], F_SETFL, 0), 0);
    ASSERT_NE(dup2(ends[1], STDERR_FILENO), -1);
}

TEST_F(Log, HoldsNobodyUpThatIsNotRead) {
    const ScopedVariable errorsOnly("LINX_LOG_LEVEL", "2");
    Child first([](Line&) { openAndClose("first"); });
    ASSERT_EQ(first.exitStatus(), 0);
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
    EXPECT_EQ(linesOf([] { openAndClose("endpoint"); }),
              (Lines{"LINX_LOG_LEVEL is 'zz', which is no mask: 530 is taken",
                     "made the domain " + domain.path() + asUser()}));
}

}  // namespace
