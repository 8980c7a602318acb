// What Wireshark asks of the program beside it, and what it gets; and that its dissector reads what the program
// writes.

#include <gmock/gmock.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include "tests/tools/in_memory.h"
#include "tests/tools/scene.h"
#include "tools/captured.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;

struct Said {
    int status;
    std::string out;
};

/// What a command of the shell says, its complaints too.
Said said(const std::string& command) {
    FILE* pipe = popen((command + " 2>&1").c_str(), "r");
    std::string out;
    char bytes[4096];
    for (size_t count; (count = fread(bytes, 1, sizeof bytes, pipe)) != 0;) out.append(bytes, count);
    return {WEXITSTATUS(pclose(pipe)), out};
}

class ExtcapTest : public ProcessTest {
protected:
    ExtcapTest() {
        std::ofstream(script) << "1774518896123456789 " << spidOf(client) << " " << spidOf(server)
                              << " 2000 8 01020304\n"
                              << "1774518896123457000 " << spidOf(server) << " " << spidOf(client) << " 2001 4\n";
    }
    void TearDown() override {
        client.close();
        server.close();
        ProcessTest::TearDown();
    }

    static Said asked(const std::string& question) { return said(LINX_EXTCAP " " + question); }

    const std::string script = domain.pathOf("script");
    const linxtest::ScopedVariable tap{"LINX_TEST_TAP", script.c_str()};
    const linxtest::ScopedVariable program{"LINX_PROGRAM", LINX_PROGRAM};
    Endpoint client{"client"};
    Endpoint server{"server"};
};

TEST_F(ExtcapTest, SaysWhatThereIsToCapture) {
    for (const std::string question : {"--extcap-interfaces", "--extcap-interfaces --extcap-version=4.0"}) {
        const Said answer = asked(question);
        EXPECT_EQ(answer.status, 0);
        EXPECT_EQ(answer.out, "extcap {version=1.0}\ninterface {value=linx}{display=LINX signals}\n");
    }
}

TEST_F(ExtcapTest, SaysOfWhichLinkTypeItIs) {
    for (const std::string question :
         {"--extcap-dlts --extcap-interface linx", "--extcap-interface=linx --extcap-dlts"}) {
        const Said answer = asked(question);
        EXPECT_EQ(answer.status, 0);
        EXPECT_EQ(answer.out, "dlt {number=147}{name=USER0}{display=LINX signals}\n");
    }
}

TEST_F(ExtcapTest, SaysWhatMayBeConfigured) {
    const Said answer = asked("--extcap-config --extcap-interface linx");
    EXPECT_EQ(answer.status, 0);
    std::istringstream lines(answer.out);
    int number = 0;
    for (std::string line; std::getline(lines, line); ++number) {
        EXPECT_THAT(line, testing::MatchesRegex("arg \\{number=" + std::to_string(number) +
                                                "\\}\\{call=--[a-z]+\\}\\{display=[^{}]+\\}\\{type=[a-z]+\\}.*"
                                                "\\{tooltip=[^{}]+\\}"));
    }
    EXPECT_EQ(number, 6);
}

TEST_F(ExtcapTest, WhatItIsNotAskedLikeThatIsRefused) {
    for (const std::string question :
         {"", "--extcap-dlts", "--extcap-dlts --extcap-interface other", "--capture --extcap-interface linx",
          "--capture --extcap-interface linx --fifo", "--extcap-interfaces what",
          "--extcap-interfaces --what ever"}) {
        const Said answer = asked(question);
        EXPECT_EQ(answer.status, 1) << question;
        EXPECT_THAT(answer.out, StartsWith("linx-extcap: ")) << question;
    }
}

TEST_F(ExtcapTest, CapturesIntoThePipeUntilItsReaderHasGone) {
    const std::string pipe = domain.pathOf("a pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const std::string own = domain.path();
    const linxtest::ScopedVariable elsewhere("LINX_DOMAIN", "/nowhere");
    const int said = memfd_create("said", MFD_CLOEXEC);
    Program extcap(LINX_EXTCAP,
                   {"--capture", "--extcap-interface", "linx", "--fifo", pipe, "--extcap-capture-filter=", "--domain",
                    own, "--number", "2000", "--snaplen=2", "--endpoint", "server", "--from", "client", "--to="},
                   {said, said, said});
    {
        const tools::File reader(std::fopen(pipe.c_str(), "re"));
        ASSERT_NE(reader, nullptr);
        tools::PcapngReader packets(reader.get(), "pipe");
        const std::optional<tools::Packet> packet = packets.next();
        ASSERT_TRUE(packet);
        const std::optional<tools::Captured> signal = fromPacket(*packet);
        ASSERT_TRUE(signal);
        EXPECT_EQ(signal->number, 2000u);
        EXPECT_EQ(signal->data, (tools::Bytes{1, 2}));
    }
    EXPECT_EQ(extcap.awaitEnd(), 0);
    EXPECT_EQ(lseek(said, 0, SEEK_END), 0) << "Wireshark would show it as an error";
    close(said);
}

TEST_F(ExtcapTest, ItsSignalEndsTheCapture) {
    const std::string pipe = domain.pathOf("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const int said = memfd_create("said", MFD_CLOEXEC);
    Program extcap(LINX_EXTCAP, {"--capture", "--extcap-interface=linx", "--fifo=" + pipe}, {said, said, said});
    const tools::File reader(std::fopen(pipe.c_str(), "re"));
    ASSERT_NE(reader, nullptr);
    tools::PcapngReader packets(reader.get(), "pipe");
    EXPECT_TRUE(packets.next());
    EXPECT_TRUE(packets.next());
    kill(extcap.pid(), SIGTERM);
    EXPECT_FALSE(packets.next());
    EXPECT_EQ(extcap.awaitEnd(), 0);
    EXPECT_EQ(lseek(said, 0, SEEK_END), 0) << "Wireshark would show it as an error";
    close(said);
}

TEST_F(ExtcapTest, TheDissectorReadsWhatTheProgramWrites) {
    if (said("command -v tshark").status != 0) GTEST_SKIP() << "tshark is not installed";
    const std::string capture = domain.pathOf("capture");
    ASSERT_EQ(runLinx({"capture", "-w", capture, "-N", "2"}).status, 0);
    const Said shown =
        said("tshark -X lua_script:" LINX_DISSECTOR " -r " + capture +
             " -T fields -e linx.from -e linx.to -e linx.number -e linx.size -e linx.data -e linx.latency"
             " -e frame.interface_name -e frame.time_epoch");
    EXPECT_EQ(shown.status, 0);
    EXPECT_THAT(shown.out, HasSubstr("client\tserver\t2000\t8\t01020304\t\t" + domain.path() +
                                     "\t1774518896.123456789\n"
                                     "server\tclient\t2001\t4\t\t0.000000211\t" +
                                     domain.path() + "\t"));
}

}  // namespace
