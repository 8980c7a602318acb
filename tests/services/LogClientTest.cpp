#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "platform/LogClient.h"
#include "tests/kit/child.h"
#include "tests/kit/failing_new.h"

namespace {

struct SyslogLine {
    int priority;
    std::string text;
};

std::vector<SyslogLine> syslogLines;
int errnoLeftBySyslog = 0;

}  // namespace

// Takes the C library's place in this program: there is no reading a real syslog back.
extern "C" void syslog(int priority, const char* format, ...) {
    char text[1024];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    const linxtest::UnfailingNew ours;
    syslogLines.push_back({priority, text});
    errno = errnoLeftBySyslog;
}

namespace {

/// The log client reads its environment once, so each case runs in a process of its own. Calls `body` in a child
/// with exactly `environment` among $LINX_LOG and $LINX_LOG_LEVEL; returns what the child left as its exit status,
/// a negative number if a signal ended it.
int runInChild(const std::map<std::string, std::string>& environment, const std::function<int()>& body) {
    Child child([&](Line&) {
        unsetenv("LINX_LOG");
        unsetenv("LINX_LOG_LEVEL");
        for (const auto& [name, value] : environment) setenv(name.c_str(), value.c_str(), 1);
        _exit(body());
    });
    return child.exitStatus();
}

constexpr unsigned defaultLevel = 2 | 16 | 512;

void logLine(unsigned level, const std::string& text) {
    SysLogMsg message;
    message.Log(level, "configd") << text;
}

std::string readAll(int descriptor) {
    std::string all;
    char piece[512];
    for (ssize_t size = 0; (size = read(descriptor, piece, sizeof piece)) > 0;) {
        all.append(piece, static_cast<std::size_t>(size));
    }
    return all;
}

/// What `body` leaves on standard error, a pipe, when it runs under $LINX_LOG = `log` (null: unset).
std::string standardErrorOf(const char* log, const std::function<void()>& body) {
    int pipeEnds[2];
    if (pipe(pipeEnds) != 0) return "no pipe";
    std::map<std::string, std::string> environment;
    if (log != nullptr) environment["LINX_LOG"] = log;
    const int status = runInChild(environment, [&] {
        dup2(pipeEnds[1], STDERR_FILENO);
        body();
        return 0;
    });
    close(pipeEnds[1]);
    std::string written = readAll(pipeEnds[0]);
    close(pipeEnds[0]);
    return status == 0 ? written : "the child failed";
}

/// The same with a terminal as standard error; the terminal's line ends are turned back into plain ones.
std::string terminalOutputOf(const std::map<std::string, std::string>& environment) {
    const int master = posix_openpt(O_RDWR | O_NOCTTY);
    if (master == -1 || grantpt(master) != 0 || unlockpt(master) != 0) return "no terminal";
    const int terminal = open(ptsname(master), O_RDWR | O_NOCTTY);
    const int status = runInChild(environment, [&] {
        dup2(terminal, STDERR_FILENO);
        logLine(2, "on a terminal");
        return 0;
    });
    fcntl(master, F_SETFL, O_NONBLOCK);
    std::string written = readAll(master);
    close(terminal);
    close(master);
    if (status != 0) return "the child failed";
    for (auto at = written.find('\r'); at != std::string::npos; at = written.find('\r')) written.erase(at, 1);
    return written;
}

bool levelIs(const std::map<std::string, std::string>& environment, unsigned expected) {
    return runInChild(environment, [&] { return LogClient::Instance()->Level() == expected ? 0 : 1; }) == 0;
}

bool levelTextGives(const std::string& text, unsigned expected) {
    return levelIs({{"LINX_LOG_LEVEL", text}}, expected);
}

TEST(LogClient, IsOneForTheProcess) {
    EXPECT_EQ(runInChild({},
                         [] {
                             return LogClient::Instance() != nullptr && LogClient::Instance() == LogClient::Instance()
                                        ? 0
                                        : 1;
                         }),
              0);
}

TEST(LogClient, EnablesErrorsNotableEventsAndShutdownByDefault) {
    EXPECT_TRUE(levelIs({}, defaultLevel));
}

TEST(LogClient, TakesTheMaskFromTheEnvironment) {
    EXPECT_TRUE(levelTextGives("0", 0));
    EXPECT_TRUE(levelTextGives("7", 7));
    EXPECT_TRUE(levelTextGives("010", 10));
    EXPECT_TRUE(levelTextGives("4294967295", 4294967295U));
    EXPECT_TRUE(levelTextGives("0x2b7", 0x2b7));
    EXPECT_TRUE(levelTextGives("0XFF", 0xff));
}

TEST(LogClient, FallsBackToTheDefaultWhereTheMaskCannotBeRead) {
    for (const char* text :
         {"", "0x", "errors", "7 ", " 7", "-1", "+7", "12z", "0xfg", "0x-1", "4294967296", "0x100000000"}) {
        EXPECT_TRUE(levelTextGives(text, defaultLevel)) << '"' << text << '"';
    }
}

/// What the first use of the log client writes to syslog.
bool firstUseTells(const std::map<std::string, std::string>& environment, const std::vector<std::string>& expected) {
    return runInChild(environment, [&] {
               close(STDERR_FILENO);
               for (int i = 0; i < 3; ++i) LogClient::Instance();
               std::vector<std::string> told;
               for (const SyslogLine& line : syslogLines) told.push_back(line.text);
               return told == expected ? 0 : 1;
           }) == 0;
}

TEST(LogClient, TellsOnceOfEachVariableThatIsSetToSomethingElse) {
    const std::string level = "linxhost: LINX_LOG_LEVEL is 'zz', which is no mask: 530 is taken";
    const std::string log =
        "linxhost: LINX_LOG is 'foo', which is neither stderr nor syslog: standard error is used where it is a "
        "terminal";
    EXPECT_TRUE(firstUseTells({{"LINX_LOG_LEVEL", "zz"}}, {level}));
    EXPECT_TRUE(firstUseTells({{"LINX_LOG", "foo"}}, {log}));
    EXPECT_TRUE(firstUseTells({{"LINX_LOG_LEVEL", "zz"}, {"LINX_LOG", "foo"}}, {level, log}));
    EXPECT_TRUE(firstUseTells({{"LINX_LOG_LEVEL", "7"}, {"LINX_LOG", "foo"}}, {log}));
}

TEST(LogClient, TellsNothingOfWhatIsRightOrUnsetOrMaskedOut) {
    EXPECT_TRUE(firstUseTells({}, {}));
    EXPECT_TRUE(firstUseTells({{"LINX_LOG_LEVEL", ""}, {"LINX_LOG", ""}}, {}));
    EXPECT_TRUE(firstUseTells({{"LINX_LOG_LEVEL", "0x212"}, {"LINX_LOG", "syslog"}}, {}));
    EXPECT_TRUE(firstUseTells({{"LINX_LOG_LEVEL", "16"}, {"LINX_LOG", "foo"}}, {}));
}

TEST(LogClient, IsThereAlsoWhereThereIsNoMemoryToTell) {
    for (unsigned n = 2; n < 10; ++n) {
        EXPECT_EQ(runInChild({{"LINX_LOG_LEVEL", "zz"}, {"LINX_LOG", "foo"}},
                             [n] {
                                 close(STDERR_FILENO);
                                 linxtest::newThatFails = n;
                                 try {
                                     return LogClient::Instance()->Level() == defaultLevel ? 0 : 1;
                                 } catch (const std::bad_alloc&) {
                                 }
                                 linxtest::newThatFails = 0;
                                 return LogClient::Instance()->Level() == defaultLevel ? 0 : 1;
                             }),
                  0);
    }
}

TEST(LogClient, LogsUnderTheProgramsName) {
    EXPECT_EQ(
        runInChild({}, [] { return LogClient::Instance()->ProcessName() == program_invocation_short_name ? 0 : 1; }),
        0);
    EXPECT_EQ(std::string(program_invocation_short_name).find('/'), std::string::npos);
}

TEST(LogClient, LeavesErrnoAloneWhereTheMaskCannotBeRead) {
    EXPECT_EQ(runInChild({{"LINX_LOG_LEVEL", "99999999999999999999999"}},
                         [] {
                             errno = ENOTTY;
                             LogClient::Instance();
                             return errno == ENOTTY ? 0 : 1;
                         }),
              0);
}

TEST(LogClient, IsMadeByTheNextUseWhereThereWasNoMemoryForTheFirst) {
    EXPECT_EQ(runInChild({{"LINX_LOG_LEVEL", "7"}},
                         [] {
                             linxtest::newThatFails = 1;
                             try {
                                 LogClient::Instance();
                                 return 1;
                             } catch (const std::bad_alloc&) {
                             }
                             return LogClient::Instance()->Level() == 7 ? 0 : 2;
                         }),
              0);
}

TEST(SysLogMsg, WritesOneLineToStandardErrorWhereAskedTo) {
    EXPECT_EQ(standardErrorOf("stderr",
                              [] {
                                  SysLogMsg message;
                                  message.Log(2, "configd") << "linxIpc" << ':' << 342 << ' ' << "open failed";
                              }),
              "configd: linxIpc:342 open failed\n");
}

TEST(SysLogMsg, DoesNotEndAProcessWhoseStandardErrorNobodyReads) {
    int pipeEnds[2];
    ASSERT_EQ(pipe(pipeEnds), 0);
    close(pipeEnds[0]);
    EXPECT_EQ(runInChild({{"LINX_LOG", "stderr"}},
                         [&] {
                             dup2(pipeEnds[1], STDERR_FILENO);
                             logLine(2, "to nobody");
                             sigset_t pending;
                             return sigpending(&pending) == 0 && sigismember(&pending, SIGPIPE) == 0 ? 0 : 1;
                         }),
              0);
    close(pipeEnds[1]);
}

TEST(SysLogMsg, WritesNothingToAStandardErrorThatIsNoTerminal) {
    EXPECT_EQ(standardErrorOf(nullptr, [] { logLine(2, "quiet"); }), "");
    EXPECT_EQ(standardErrorOf("syslog", [] { logLine(2, "quiet"); }), "");
    EXPECT_EQ(standardErrorOf("something else", [] { logLine(2, "quiet"); }), "");
}

TEST(SysLogMsg, WritesToATerminalUnlessSyslogAloneIsAskedFor) {
    EXPECT_EQ(terminalOutputOf({}), "configd: on a terminal\n");
    EXPECT_EQ(terminalOutputOf({{"LINX_LOG", "stderr"}}), "configd: on a terminal\n");
    EXPECT_EQ(terminalOutputOf({{"LINX_LOG", "syslog"}}), "");
}

TEST(SysLogMsg, WritesTheLineWhenItIsDestroyedAndNotBefore) {
    EXPECT_EQ(standardErrorOf("stderr",
                              [] {
                                  SysLogMsg message;
                                  std::ostream& stream = message.Log(2, "configd");
                                  stream << "first half, ";
                                  EXPECT_EQ(write(STDERR_FILENO, "between\n", 8), 8);
                                  stream << "second half";
                              }),
              "between\nconfigd: first half, second half\n");
}

TEST(SysLogMsg, WritesWhatAFailedStreamHadGotten) {
    EXPECT_EQ(standardErrorOf("stderr",
                              [] {
                                  SysLogMsg message;
                                  std::ostream& stream = message.Log(2, "configd");
                                  stream << "Receive: ";
                                  stream.setstate(std::ios::badbit);
                                  stream << "lost";
                              }),
              "configd: Receive: \n");
}

TEST(SysLogMsg, WritesNothingForALineThatWasNeverBegun) {
    EXPECT_EQ(standardErrorOf("stderr", [] { SysLogMsg message; }), "");
}

TEST(SysLogMsg, KeepsALongLineWhole) {
    const std::string text(100000, 'x');
    int pipeEnds[2];
    ASSERT_EQ(pipe(pipeEnds), 0);
    ASSERT_LE(static_cast<int>(text.size()), fcntl(pipeEnds[1], F_SETPIPE_SZ, 1 << 20));
    EXPECT_EQ(runInChild({{"LINX_LOG", "stderr"}},
                         [&] {
                             dup2(pipeEnds[1], STDERR_FILENO);
                             logLine(2, text);
                             return 0;
                         }),
              0);
    close(pipeEnds[1]);
    EXPECT_EQ(readAll(pipeEnds[0]), "configd: " + text + "\n");
    close(pipeEnds[0]);
}

/// Logs `text` while each `new` in turn fails, until none is left that could. False when more than its beginning is
/// logged, or what an exception has ended, or the last line is not whole.
bool loggedAsFarAsMemoryGoes(const std::string& text) {
    for (unsigned n = 1;; ++n) {
        syslogLines.clear();
        bool begun = true;
        linxtest::newThatFails = n;
        try {
            SysLogMsg message;
            message.Log(2, "a process with a long name") << text;
        } catch (const std::bad_alloc&) {
            begun = false;
        }
        const bool failed = std::exchange(linxtest::newThatFails, 0) == 0;
        if (!failed) return n > 3 && syslogLines.size() == 1 && syslogLines[0].text == text;
        if (syslogLines.size() > (begun ? 1u : 0u)) return false;
        if (!syslogLines.empty() && text.rfind(syslogLines[0].text, 0) != 0) return false;
    }
}

TEST(SysLogMsg, IsDroppedWhereThereIsNoMemoryForIt) {
    const std::string text(500, 'x');
    for (const char* log : {"syslog", "stderr"}) {
        EXPECT_EQ(runInChild({{"LINX_LOG", log}},
                             [&] {
                                 close(STDERR_FILENO);
                                 return loggedAsFarAsMemoryGoes(text) ? 0 : 1;
                             }),
                  0)
            << log;
    }
}

TEST(SysLogMsg, IsEchoedInWholeOrNotWrittenAtAll) {
    const std::string text(500, 'x');
    const std::string written = standardErrorOf("stderr", [&] {
        for (unsigned n = 1; n <= 20; ++n) {
            syslogLines.clear();
            linxtest::newThatFails = n;
            try {
                logLine(2, text);
            } catch (const std::bad_alloc&) {
            }
            linxtest::newThatFails = 0;
            const std::string heard = syslogLines.empty() ? "" : "(" + syslogLines[0].text + ")\n";
            write(STDERR_FILENO, heard.data(), heard.size());
        }
    });
    // Each line is followed by what syslog was given: the same, and never one without the other.
    std::istringstream lines(written);
    unsigned count = 0;
    for (std::string line, heard; std::getline(lines, line); ++count) {
        ASSERT_TRUE(std::getline(lines, heard));
        EXPECT_EQ(heard, "(" + line.substr(line.find(' ') + 1) + ")");
    }
    EXPECT_GT(count, 10u);
    EXPECT_LT(count, 20u);
}

TEST(SysLogMsg, ASecondBeginningKeepsTheTextAndChangesTheRest) {
    const auto begin = [] {
        SysLogMsg message;
        message.Log(32, "configd") << "one, ";
        message.Log(2, "connectd") << "two";
    };
    EXPECT_EQ(standardErrorOf("stderr", begin), "connectd: one, two\n");
    EXPECT_EQ(runInChild({{"LINX_LOG", "syslog"}},
                         [&] {
                             begin();
                             return syslogLines.size() == 1 && syslogLines[0].priority == LOG_ERR ? 0 : 1;
                         }),
              0);
}

TEST(SysLogMsg, AlwaysGoesToSyslogWithoutTheProcessNameThatSyslogAdds) {
    for (const char* log : {"stderr", "syslog", "neither"}) {
        EXPECT_EQ(runInChild({{"LINX_LOG", log}},
                             [] {
                                 close(STDERR_FILENO);
                                 logLine(2, "100% sure");
                                 return syslogLines.size() == 1 && syslogLines[0].text == "100% sure" ? 0 : 1;
                             }),
                  0)
            << log;
    }
}

TEST(SysLogMsg, TurnsTheLevelIntoAPriority) {
    const std::map<unsigned, int> expected = {{1, LOG_WARNING}, {2, LOG_ERR},     {4, LOG_WARNING}, {16, LOG_NOTICE},
                                              {32, LOG_DEBUG},  {128, LOG_DEBUG}, {512, LOG_NOTICE}};
    for (const auto& [level, priority] : expected) {
        EXPECT_EQ(runInChild({{"LINX_LOG", "syslog"}},
                             [bit = level, wanted = priority] {
                                 logLine(bit, "text");
                                 return syslogLines.size() == 1 && syslogLines[0].priority == wanted ? 0 : 1;
                             }),
                  0)
            << level;
    }
}

TEST(SysLogMsg, LeavesErrnoAlone) {
    EXPECT_EQ(runInChild({{"LINX_LOG", "stderr"}},
                         [] {
                             close(STDERR_FILENO);  // the write fails with EBADF
                             errnoLeftBySyslog = ENOENT;
                             errno = EHOSTUNREACH;
                             {
                                 SysLogMsg message;
                                 std::ostream& stream = message.Log(2, LogClient::Instance()->ProcessName());
                                 if (errno != EHOSTUNREACH) return 1;
                                 stream << "text";
                             }
                             return errno == EHOSTUNREACH ? 0 : 2;
                         }),
              0);
}

}  // namespace
