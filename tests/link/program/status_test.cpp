// What links tell of themselves, as `linx` shows it.

#include "link/status/status.h"

#include "tests/kit/in_time.h"
#include "tests/link/program/running.h"

namespace {

using linktest::Running;
using linktest::TakenPort;

class StatusTest : public linktest::ProgramTest {
protected:
    StatusTest() {
        setenv("LINX_LOG", "stderr", 1);
        configure("key = \"link.key\"\nlisten = \"" + address + "\"\n" + linkTo(peerKey, "toPeer") +
                      "export = [\"toPeer\"]\n",
                  "own.conf");
        configure("key = \"peer.key\"\ndomain = \"" + peersDomain.path() + "\"\n" + linkTo(ownKey, "toOwn") +
                      "connect = \"" + address + "\"\nexport = [\"open\"]\n",
                  "peer.conf");
    }

    /// What `linx` writes, as JSON without blanks.
    std::string linx(const std::string& arguments) {
        const std::string file = directory + "/shown";
        const std::string command = "'" LINX_PROGRAM "' " + arguments + " -j >'" + file + "'";
        EXPECT_NE(std::system(command.c_str()), -1);
        return linktest::contentOf(file);
    }
    bool shows(const std::string& arguments, const std::string& part) {
        return comesTrue([&] { return linx(arguments).find(part) != std::string::npos; });
    }

    const linxtest::TestDomain peersDomain;
    const std::string address = TakenPort().address();  // and free again
};

TEST_F(StatusTest, ALinkIsShownFromItsBeginningToItsEnd) {
    Running own(directory, "own.conf");
    EXPECT_TRUE(shows("links", R"("peer":")" + peerKey + R"(","state":"down",)"));
    std::optional<Running> peer(std::in_place, directory, "peer.conf");
    EXPECT_TRUE(shows("links toPeer", R"("state":"up",)"));
    EXPECT_TRUE(shows("links", R"("byte_order":")"));
    EXPECT_EQ(linx("links").find(R"("rtt_microseconds":0)"), std::string::npos);

    EXPECT_EQ(std::system("'" LINX_PROGRAM "' wait toPeer/secret --timeout 10ms 2>/dev/null"), 4 << 8);
    EXPECT_TRUE(shows("links", R"("denied":["secret"])"));
    EXPECT_EQ(peer->end(SIGTERM), 0);
    EXPECT_TRUE(shows("links", R"("state":"down",)"));
    EXPECT_TRUE(shows("links", R"("reason":"one side took its leave")"));
    EXPECT_EQ(own.end(SIGTERM), 0);
}

TEST_F(StatusTest, WhoIsBehindALinkIsToldNothingOfIt) {
    Running own(directory, "own.conf");
    Running peer(directory, "peer.conf");
    const std::string asks = std::to_string(linx::link::askStatusNumber) + " --reply " +
                             std::to_string(linx::link::statusNumber) + " --timeout 300ms >'" + directory +
                             "/answer' 2>&1";
    EXPECT_TRUE(shows("links", R"("state":"up",)"));
    EXPECT_EQ(std::system(("'" LINX_PROGRAM "' call toPeer " + asks).c_str()), 0);
    const linxtest::ScopedVariable there("LINX_DOMAIN", peersDomain.path().c_str());
    EXPECT_EQ(std::system("'" LINX_PROGRAM "' wait toOwn/toPeer"), 0);
    EXPECT_EQ(std::system(("'" LINX_PROGRAM "' call toOwn/toPeer " + asks).c_str()), 4 << 8);
}

}  // namespace
