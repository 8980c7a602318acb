// Who may join a domain: file permission and nothing else.

#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "tests/processes/support/child.h"
#include "tests/processes/support/process_test.h"
#include "tests/processes/support/signals.h"

namespace {

constexpr uid_t stranger = 65534;
constexpr uid_t member = 65533;
constexpr uid_t otherMember = 65532;
constexpr gid_t group = 65531;

constexpr uint32_t item = 100;
constexpr uint32_t notice = 101;

void become(uid_t user, gid_t ofGroup) {
    ASSERT_EQ(0, setgroups(1, &ofGroup));
    ASSERT_EQ(0, setresgid(ofGroup, ofGroup, ofGroup));
    ASSERT_EQ(0, setresuid(user, user, user));
    dieWithParent();
}

class Access : public ProcessTest {
protected:
    void SetUp() override {
        if (geteuid() != 0) GTEST_SKIP() << "only the superuser can become others";
    }
    void shareDomain() const {
        ASSERT_EQ(0, chown(domain.path().c_str(), 0, group));
        ASSERT_EQ(0, chmod(domain.path().c_str(), 02770));
    }
};

void expectNoAccess() {
    EXPECT_EQ(nullptr, linx_open("stranger", 0, nullptr));
    EXPECT_EQ(EACCES, errno);
}

TEST_F(Access, AStrangerCannotJoin) {
    Endpoint endpoint("owner");
    Child child([](Line&) {
        become(stranger, stranger);
        expectNoAccess();
    });
    EXPECT_EQ(0, child.exitStatus());
}

TEST_F(Access, AStrangerCannotJoinAGroupsDomain) {
    shareDomain();
    Endpoint endpoint("owner");
    Child child([](Line&) {
        become(stranger, stranger);
        expectNoAccess();
    });
    EXPECT_EQ(0, child.exitStatus());
}

TEST_F(Access, AStrangerWhoCanEnterTheDirectoryStillCannotJoin) {
    Endpoint endpoint("owner");
    ASSERT_EQ(0, chmod(domain.path().c_str(), 0755));
    Child child([](Line&) {
        become(stranger, stranger);
        expectNoAccess();
    });
    EXPECT_EQ(0, child.exitStatus());
}

TEST_F(Access, AStrangerCannotJoinAnArenaThatWasOpenedToAll) {
    Endpoint endpoint("owner");
    ASSERT_EQ(0, chmod(domain.path().c_str(), 0755));
    ASSERT_EQ(0, chmod(domain.pathOf("arena").c_str(), 0666));
    Child child([](Line&) {
        become(stranger, stranger);
        expectNoAccess();
    });
    EXPECT_EQ(0, child.exitStatus());
    expectNoAccess();  // nor does its owner, from now on
    ASSERT_EQ(0, chmod(domain.pathOf("arena").c_str(), 0600));
    const Endpoint next("next");
}

TEST_F(Access, AnArenaThatIsOnlyForReadingCannotBeJoined) {
    { const Endpoint endpoint("owner"); }
    shareDomain();
    ASSERT_EQ(0, chown(domain.pathOf("arena").c_str(), 0, group));
    ASSERT_EQ(0, chmod(domain.pathOf("arena").c_str(), 0640));
    Child child([](Line&) {
        become(member, group);
        expectNoAccess();
    });
    EXPECT_EQ(0, child.exitStatus());
}

TEST_F(Access, AnArenaThatAStrangerHasPutWhereAllMayAddFilesIsNotJoined) {
    ASSERT_EQ(0, chmod(domain.path().c_str(), 01777));
    Child trapper([](Line&) {
        become(stranger, stranger);
        const Endpoint endpoint("trap");
    });
    EXPECT_EQ(0, trapper.exitStatus());
    Child child([](Line&) {
        become(member, group);
        expectNoAccess();
    });
    EXPECT_EQ(0, child.exitStatus());
    expectNoAccess();
    ASSERT_EQ(0, unlink(domain.pathOf("arena").c_str()));
    const Endpoint endpoint("owner");
}

TEST_F(Access, ADirectoryThatAnybodyMayRearrangeIsNotJoined) {
    { const Endpoint endpoint("owner"); }
    for (const mode_t mode : {0777u, 0702u, 02777u}) {
        ASSERT_EQ(0, chmod(domain.path().c_str(), mode));
        expectNoAccess();
    }
}

TEST_F(Access, ADoorbellThatAStrangerHasPutInTheWayIsNotUsed) {
    ASSERT_EQ(0, chmod(domain.path().c_str(), 01777));
    const Endpoint endpoint("owner");
    Child trapper([&](Line&) {
        become(stranger, stranger);
        for (uint32_t index = 1; index < 20; ++index) {
            char name[16];
            std::snprintf(name, sizeof name, "bell.%08x", 0x2000 + index);
            mkfifo(domain.pathOf(name).c_str(), 0666);
        }
    });
    EXPECT_EQ(0, trapper.exitStatus());
    Child child([&](Line&) {
        become(member, group);
        expectNoAccess();  // the owner's arena is the owner's
    });
    EXPECT_EQ(0, child.exitStatus());
    const Endpoint other("other");  // the superuser may remove them
    struct stat status;
    char name[16];
    std::snprintf(name, sizeof name, "bell.%08x", spidOf(other));
    ASSERT_EQ(0, stat(domain.pathOf(name).c_str(), &status));
    EXPECT_EQ(geteuid(), status.st_uid);
    EXPECT_EQ(0u, status.st_mode & S_IRWXO);
}

TEST_F(Access, AUsersOwnDomainThatAnotherHasMadeIsATrap) {
    const std::string word = "access." + std::to_string(getpid());
    const std::string trap = "/dev/shm/linx." + std::to_string(member) + "." + word;
    const linxtest::ScopedVariable chosen("LINX_DOMAIN", word.c_str());
    Child trapper([&](Line&) {
        become(stranger, stranger);
        ASSERT_EQ(0, mkdir(trap.c_str(), 0777));
        ASSERT_EQ(0, chmod(trap.c_str(), 01777));
    });
    EXPECT_EQ(0, trapper.exitStatus());
    Child child([&](Line&) {
        become(member, group);
        expectNoAccess();
    });
    EXPECT_EQ(0, child.exitStatus());
    EXPECT_EQ(std::vector<std::string>(), linxtest::namesIn(trap));
    EXPECT_EQ(0, rmdir(trap.c_str()));
}

TEST_F(Access, ALinkInPlaceOfAUsersOwnDomainLeadsNowhere) {
    const std::string word = "access." + std::to_string(getpid());
    const std::string trap = "/dev/shm/linx." + std::to_string(member) + "." + word;
    ASSERT_EQ(0, chmod(domain.path().c_str(), 01777));
    ASSERT_EQ(0, symlink(domain.path().c_str(), trap.c_str()));
    {
        const linxtest::ScopedVariable chosen("LINX_DOMAIN", word.c_str());
        Child child([](Line&) {
            become(member, group);
            EXPECT_EQ(nullptr, linx_open("stranger", 0, nullptr));
            EXPECT_EQ(ENOTDIR, errno);
        });
        EXPECT_EQ(0, child.exitStatus());
    }
    EXPECT_EQ(std::vector<std::string>(), domain.files());
    EXPECT_EQ(0, unlink(trap.c_str()));
}

TEST_F(Access, AMemberOfTheGroupIsLetInWhereAStrangerIsNot) {
    shareDomain();
    Child first([](Line& parent) {
        become(member, group);
        const Endpoint endpoint("first");
        parent.tell();
        parent.hear();
    });
    first.hear();
    Child second([](Line& parent) {
        become(otherMember, group);
        Endpoint endpoint("second");
        EXPECT_NE(0u, hunt(endpoint, "first"));
        parent.tell();
        parent.hear();
    });
    second.hear();
    Child third([](Line&) {
        become(stranger, stranger);
        expectNoAccess();
    });
    EXPECT_EQ(0, third.exitStatus());
    for (const std::string& name : domain.files()) {
        struct stat status;
        ASSERT_EQ(0, stat(domain.pathOf(name).c_str(), &status));
        EXPECT_EQ(group, status.st_gid) << name;
        EXPECT_EQ(0660u, status.st_mode & 0777u) << name;
    }
    first.tell();
    second.tell();
    EXPECT_EQ(0, first.exitStatus());
    EXPECT_EQ(0, second.exitStatus());
}

TEST_F(Access, TwoUsersOfAGroupShareADomain) {
    shareDomain();
    Child mirror([](Line& parent) {
        become(member, group);
        Endpoint endpoint("mirror");
        parent.tell();
        sendBack(endpoint, item);
    });
    mirror.hear();
    Child client([](Line& parent) {
        become(otherMember, group);
        Endpoint endpoint("client");
        const LinxSpid to = hunt(endpoint, "mirror");
        for (uint32_t size = 1; size < 1000000; size *= 7) {
            ASSERT_EQ(0, sendBytes(endpoint, to, item, pattern(size, size)));
            EXPECT_TRUE(pattern(size, size) == expectSignal(endpoint, item).payload);
        }
        ASSERT_NE(0u, attach(endpoint, to, notice));
        parent.tell();
        EXPECT_EQ(to, expectSignal(endpoint, notice).sender);
        EXPECT_EQ(ECONNRESET, send(endpoint, to, item));
        // A member reaps what another user's process left, and takes over its name.
        Endpoint next("mirror");
        EXPECT_EQ(spidOf(next), hunt(endpoint, "mirror"));
    });
    client.hear();
    mirror.kill9();
    EXPECT_EQ(0, client.exitStatus());
}

}  // namespace
