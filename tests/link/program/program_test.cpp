// linx-link as its users call it.

#include "tests/link/program/program_fixture.h"

using linktest::contentOf;
using linktest::ProgramTest;
using linktest::Transcript;
using testing::HasSubstr;

TEST_F(ProgramTest, KeygenPrintsThePublicKeyAloneOnALineAndKeepsTheSecretOne) {
    const Transcript transcript = run("keygen new.key");
    EXPECT_EQ(transcript.status, 0);
    EXPECT_EQ(transcript.errors, "");
    EXPECT_EQ(transcript.output.size(), 41u);
    EXPECT_EQ(transcript.output.back(), '\n');
    EXPECT_EQ(std::filesystem::status(directory + "/new.key").permissions(),
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
    EXPECT_NE(contentOf(directory + "/new.key"), transcript.output);
    EXPECT_NE(ownKey, peerKey);
}

TEST_F(ProgramTest, KeygenNeverWritesOverAKey) {
    const std::string before = contentOf(directory + "/link.key");
    const Transcript transcript = run("keygen link.key");
    EXPECT_EQ(transcript.status, 1);
    EXPECT_EQ(transcript.output, "");
    EXPECT_EQ(transcript.errors,
              "link.key: is there already, and its key would be lost; remove it first if that is meant\n");
    EXPECT_EQ(contentOf(directory + "/link.key"), before);
}

TEST_F(ProgramTest, AKeyWhosePublicHalfNobodySeesIsNotKept) {
    const Transcript transcript = run("keygen new.key > /dev/full");
    EXPECT_EQ(transcript.status, 1);
    EXPECT_EQ(transcript.errors, "linx-link: the public key could not be printed\n");
    EXPECT_FALSE(std::filesystem::exists(directory + "/new.key"));
}

TEST_F(ProgramTest, CheckTellsWhatARightConfigurationMeans) {
    configure("key = \"link.key\"\n" + linkTo(peerKey) + "connect = \"tcp://10.0.0.2:7400\"\n");
    const Transcript transcript = run("check link.conf");
    EXPECT_EQ(transcript.errors, "");
    EXPECT_EQ(transcript.status, 0);
    EXPECT_EQ(transcript.output, "link.conf is in order.\npublic key    " + ownKey +
                                     "\nlink          toVp0, dials tcp://10.0.0.2:7400\n");
}

TEST_F(ProgramTest, TheExamplesAreInOrder) {
    for (const std::string name : {"main.conf", "vp0.conf"}) {
        configure(linktest::contentOf(std::string(LINX_LINK_EXAMPLES "/") + name), name);
        const Transcript transcript = run("check " + name);
        EXPECT_EQ(transcript.status, 0) << transcript.errors;
        EXPECT_THAT(transcript.output, HasSubstr(name + " is in order.\n"));
    }
}

TEST_F(ProgramTest, TheKeyLiesBesideTheConfigurationWhereverItIsCalledFrom) {
    configure("key = \"link.key\"\n" + linkTo(peerKey) + "connect = \"tcp://10.0.0.2:7400\"\n");
    const Transcript transcript = run("--help && cd / && '" LINX_LINK "' check '" + directory + "/link.conf'");
    EXPECT_EQ(transcript.status, 0) << transcript.errors;
}

TEST_F(ProgramTest, CheckTellsFileLineAndWhatIsRight) {
    configure("key = \"link.key\"\nlisen = \"tcp://127.0.0.1:7400\"\n" + linkTo("abc") + "tolerance = 5\n");
    const Transcript transcript = run("check link.conf");
    EXPECT_EQ(transcript.status, 1);
    EXPECT_EQ(transcript.output, "");
    EXPECT_EQ(
        transcript.errors,
        "link.conf:2: the configuration has no \"lisen\"; is \"listen\" meant?\n"
        "link.conf:3: [[link]] has no connect, and nothing listens for its peer; write such as: connect = "
        "\"tcp://10.0.0.2:7400\", or listen = \"tcp://0.0.0.0:7400\" above all links\n"
        "link.conf:5: peer: \"abc\" is no public key: that is the line of 40 characters which \"linx-link keygen\" "
        "prints over there\n"
        "link.conf:6: tolerance has to be a number of 100 to 30000, without quotes; left out it is 1500\n");
}

TEST_F(ProgramTest, AKeyThatOthersCanReadIsRefused) {
    configure("key = \"link.key\"\n" + linkTo(peerKey) + "connect = \"tcp://10.0.0.2:7400\"\n");
    std::filesystem::permissions(directory + "/link.key", std::filesystem::perms(0644));
    const Transcript transcript = run("check link.conf");
    EXPECT_EQ(transcript.status, 1);
    EXPECT_EQ(
        transcript.errors,
        "link.key: is open to others (mode 0644) and its key may be known; make a new one, or \"chmod 600\" it if "
        "nobody has read it\n");
}

TEST_F(ProgramTest, ANodeIsNotItsOwnPeer) {
    configure("key = \"link.key\"\n" + linkTo(ownKey) + "connect = \"tcp://10.0.0.2:7400\"\n");
    const Transcript transcript = run("check link.conf");
    EXPECT_EQ(transcript.status, 1);
    EXPECT_EQ(transcript.errors,
              "link.conf:2: peer is the key of this node itself; it has to be that of the other one\n");
}

TEST_F(ProgramTest, CheckTriesTheAddressToListenAt) {
    configure("key = \"link.key\"\nlisten = \"tcp://192.0.2.1:7400\"\n" + linkTo(peerKey));  // nobody's, RFC 5737
    const Transcript transcript = run("check link.conf");
    EXPECT_EQ(transcript.status, 1);
    EXPECT_EQ(transcript.errors,
              "link.conf: cannot listen at tcp://192.0.2.1:7400: Cannot assign requested address\n");
}

TEST_F(ProgramTest, AnAddressInUseIsNoMistake) {
    const linktest::TakenPort port;
    const std::string& place = port.address();
    configure("key = \"link.key\"\nlisten = \"" + place + "\"\n" + linkTo(peerKey));
    const Transcript transcript = run("check link.conf");
    EXPECT_EQ(transcript.status, 0) << transcript.errors;
    EXPECT_THAT(transcript.output, HasSubstr("listens at    " + place + " (which is in use now)\n"));
    EXPECT_THAT(transcript.output, HasSubstr("link          toVp0, waits for its peer\n"));
}

TEST_F(ProgramTest, WhatIsNoConfigurationIsRefused) {
    EXPECT_EQ(run("check nothing.conf").errors, "nothing.conf: cannot be read: No such file or directory\n");
    EXPECT_EQ(run("check .").errors, ".: cannot be read: Is a directory\n");
    EXPECT_EQ(run("check /dev/zero").errors, "/dev/zero: cannot be read: File too large\n");
    configure(std::string("\0\xFF\x80 garbage", 11));
    EXPECT_THAT(run("check link.conf").errors, HasSubstr("link.conf:1: this is not TOML"));
}

TEST_F(ProgramTest, HelpNamesWhatThereIsAndNonsenseIsRefused) {
    const Transcript help = run("--help");
    EXPECT_EQ(help.status, 0);
    for (const char* word : {"keygen", "check"}) EXPECT_THAT(help.output, HasSubstr(word));
    for (const char* arguments : {"", "keygen", "check", "nonsense", "--nonsense", "keygen a b"}) {
        const Transcript transcript = run(arguments);
        EXPECT_NE(transcript.status, 0) << arguments;
        EXPECT_LT(transcript.status, 256) << arguments;
        EXPECT_NE(transcript.errors, "") << arguments;
    }
}
