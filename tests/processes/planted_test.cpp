// What somebody has put in the place of the domain's directory, its arena or a doorbell: it is refused or replaced,
// and what lies outside the domain is never touched through it.

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <cerrno>
#include <fstream>

#include "tests/kit/domain_test.h"
#include "tests/kit/signals.h"
#include "tests/kit/witness.h"

namespace {

using linxtest::ScopedVariable;
using linxtest::Witness;

constexpr uint32_t changes = IN_MODIFY | IN_ATTRIB | IN_CREATE | IN_DELETE | IN_DELETE_SELF | IN_MOVE;
constexpr uint32_t anything = changes | IN_OPEN;
constexpr uint32_t item = 100;

class Planted : public ProcessTest {
protected:
    void SetUp() override {
        ASSERT_TRUE(std::ofstream(file()) << "text");
        ASSERT_EQ(mkdir(directory().c_str(), 0700), 0);
    }
    void TearDown() override {
        std::string text;
        std::ifstream(file()) >> text;
        EXPECT_EQ(text, "text");
        EXPECT_EQ(unlink(file().c_str()), 0);
        EXPECT_EQ(rmdir(directory().c_str()), 0);
        ProcessTest::TearDown();
    }

    static int errorOfOpen(const char* name = "endpoint") {
        LINX* linx = linx_open(name, 0, nullptr);
        if (linx == nullptr) return errno;
        linx_close(linx);
        return 0;
    }
    static int errorOfHunt(LINX* linx, const char* name) {
        errno = 0;
        return linx_hunt(linx, name, nullptr) == 0 ? 0 : errno;
    }

    std::string outside(const char* name) const { return outside_.pathOf(name); }
    std::string file() const { return outside("file"); }
    std::string directory() const { return outside("directory"); }
    std::string absent() const { return outside("absent"); }

    std::string arena() const { return domain.pathOf("arena"); }
    std::string doorbellOf(LinxSpid spid) const {
        char name[16];
        std::snprintf(name, sizeof name, "bell.%08x", spid);
        return domain.pathOf(name);
    }

    /// A path by which everything in the domain is no longer what it was.
    static void link(const std::string& to, const std::string& from) {
        ASSERT_EQ(symlink(to.c_str(), from.c_str()), 0);
    }
    static void hardLink(const std::string& to, const std::string& from) {
        ASSERT_EQ(::link(to.c_str(), from.c_str()), 0);
    }

private:
    const linxtest::TestDomain outside_;  // after the domain, so that it would be the one, but for the next
    const ScopedVariable chosen_{"LINX_DOMAIN", domain.path().c_str()};
};

TEST_F(Planted, ALinkIsNoDomain) {
    const Witness witness(directory(), anything);
    for (const std::string& to : {directory(), file(), absent()}) {
        link(to, domain.pathOf("link"));
        const ScopedVariable variable("LINX_DOMAIN", domain.pathOf("link").c_str());
        EXPECT_EQ(errorOfOpen(), ENOTDIR) << to;
        EXPECT_EQ(unlink(domain.pathOf("link").c_str()), 0);
    }
    EXPECT_FALSE(witness.sawSomething());
    EXPECT_EQ(access(absent().c_str(), F_OK), -1);
}

TEST_F(Planted, ALinkInPlaceOfTheArenaIsNotFollowed) {
    const Witness witness(file(), anything);
    for (const std::string& to : {directory(), file(), absent()}) {
        link(to, arena());
        EXPECT_EQ(errorOfOpen(), EPROTO) << to;
        EXPECT_EQ(unlink(arena().c_str()), 0);
    }
    EXPECT_FALSE(witness.sawSomething());
    EXPECT_EQ(access(absent().c_str(), F_OK), -1);
    EXPECT_EQ(errorOfOpen(), 0);
}

TEST_F(Planted, AFileOfOthersInPlaceOfTheArenaIsNotChanged) {
    hardLink(file(), arena());
    const Witness witness(file(), changes);
    EXPECT_EQ(errorOfOpen(), EPROTO);
    EXPECT_FALSE(witness.sawSomething());
    EXPECT_EQ(unlink(arena().c_str()), 0);
}

TEST_F(Planted, WhatIsNoFileInPlaceOfTheArenaIsNotOpened) {
    ASSERT_EQ(mkdir(arena().c_str(), 0700), 0);
    EXPECT_EQ(errorOfOpen(), EPROTO);
    EXPECT_EQ(rmdir(arena().c_str()), 0);
    ASSERT_EQ(mkfifo(arena().c_str(), 0600), 0);
    {
        const Witness witness(arena(), anything);
        EXPECT_EQ(errorOfOpen(), EPROTO);
        EXPECT_FALSE(witness.sawSomething());
    }
    EXPECT_EQ(unlink(arena().c_str()), 0);
    if (mknod(arena().c_str(), S_IFCHR | 0600, makedev(1, 3)) == -1)
        GTEST_SKIP() << "only the superuser makes devices";
    const Witness witness(arena(), anything);
    EXPECT_EQ(errorOfOpen(), EPROTO);
    EXPECT_FALSE(witness.sawSomething());
}

TEST_F(Planted, NothingInPlaceOfAPeersDoorbellIsRung) {
    Endpoint endpoint("endpoint");
    Endpoint peer("peer");
    const std::string doorbell = doorbellOf(spidOf(peer));
    ASSERT_EQ(rename(doorbell.c_str(), domain.pathOf("kept").c_str()), 0);
    const auto expectRefused = [&] {
        EXPECT_EQ(errorOfHunt(endpoint, "peer"), EPROTO);
        EXPECT_EQ(send(endpoint, spidOf(peer), item), EPROTO);
        EXPECT_EQ(attach(endpoint, spidOf(peer), item), 0u);
        EXPECT_EQ(errno, EPROTO);
        EXPECT_EQ(errorOfOpen("peer"), EPROTO);
        EXPECT_EQ(errorOfOpen("other"), 0);
        EXPECT_EQ(unlink(doorbell.c_str()) == 0 ? 0 : rmdir(doorbell.c_str()), 0);
    };
    const Witness witness(file(), anything & ~uint32_t{IN_ATTRIB});  // linking it is a change, too
    for (const std::string& to : {directory(), file(), absent(), std::string("/dev/null")}) {
        link(to, doorbell);
        expectRefused();
    }
    hardLink(file(), doorbell);
    expectRefused();
    ASSERT_EQ(mkdir(doorbell.c_str(), 0700), 0);
    expectRefused();
    EXPECT_FALSE(witness.sawSomething());
    EXPECT_EQ(access(absent().c_str(), F_OK), -1);
    // It was never taken for dead, and is found again.
    ASSERT_EQ(rename(domain.pathOf("kept").c_str(), doorbell.c_str()), 0);
    EXPECT_EQ(hunt(endpoint, "peer"), spidOf(peer));
    EXPECT_EQ(send(endpoint, spidOf(peer), item), 0);
    expectSignal(peer, item, 0);
}

TEST_F(Planted, WhatLiesWhereADoorbellWillBeIsReplaced) {
    Endpoint first("first");
    const Witness witness(file(), anything & ~uint32_t{IN_ATTRIB});
    LinxSpid next = spidOf(first);
    const auto expectReplaced = [&] {
        Endpoint endpoint("endpoint");
        EXPECT_EQ(spidOf(endpoint), next);
        EXPECT_EQ(hunt(first, "endpoint"), spidOf(endpoint));
    };
    for (const std::string& to : {directory(), file(), absent()}) {
        link(to, doorbellOf(++next));
        expectReplaced();
    }
    hardLink(file(), doorbellOf(++next));
    expectReplaced();
    ASSERT_EQ(mkfifo(doorbellOf(++next).c_str(), 0600), 0);
    expectReplaced();
    EXPECT_FALSE(witness.sawSomething());
    EXPECT_EQ(access(absent().c_str(), F_OK), -1);
    // A directory stays, and the slot is left for later.
    const std::string directoryThere = doorbellOf(++next);
    ASSERT_EQ(mkdir(directoryThere.c_str(), 0700), 0);
    EXPECT_EQ(errorOfOpen(), EEXIST);
    EXPECT_EQ(rmdir(directoryThere.c_str()), 0);
    EXPECT_EQ(errorOfOpen(), 0);
}

}  // namespace
