// Who may join a domain: file permission and nothing else.

#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "tests/kit/child.h"
#include "tests/kit/domain_test.h"
#include "tests/kit/signals.h"

namespace {

constexpr uid_t stranger = 65534;
constexpr uid_t member = 65533;
constexpr uid_t otherMember = 65532;
constexpr gid_t group = 65531;

constexpr uint32_t item = 100;
constexpr uint32_t notice = 101;

void become(uid_t user, gid_t ofGroup) {
    ASSERT_EQ(setgroups(1, &ofGroup), 0);
    ASSERT_EQ(setresgid(ofGroup, ofGroup, ofGroup), 0);
    ASSERT_EQ(setresuid(user, user, user), 0);
    dieWithParent();
}

class Access : public ProcessTest {
protected:
    void SetUp() override {
        if (geteuid() != 0) GTEST_SKIP() << "only the superuser can become others";
    }
    void shareDomain() const {
        ASSERT_EQ(chown(domain.path().c_str(), 0, group), 0);
        ASSERT_EQ(chmod(domain.path().c_str(), 02770), 0);
    }
};

void expectNoAccess() {
    EXPECT_EQ(linx_open("stranger", 0, nullptr), nullptr);
    EXPECT_EQ(errno, EACCES);
}

TEST_F(Access, AStrangerCannotJoin) {
    Endpoint endpoint("owner");
    Child child([](Line&) {
        become(stranger, stranger);
        expectNoAccess();
    });
    EXPECT_EQ(child.exitStatus(), 0);
}

TEST_F(Access, AStrangerCannotJoinAGroupsDomain) {
    shareDomain();
    Endpoint endpoint("owner");
    Child child([](Line&) {
        become(stranger, stranger);
        expectNoAccess();
    });
    EXPECT_EQ(child.exitStatus(), 0);
}

TEST_F(Access, AStrangerWhoCanEnterTheDirectoryStillCannotJoin) {
    Endpoint endpoint("owner");
    ASSERT_EQ(chmod(domain.path().c_str(), 0755), 0);
    Child child([](Line&) {
        become(stranger, stranger);
        expectNoAccess();
    });
    EXPECT_EQ(child.exitStatus(), 0);
}

TEST_F(Access, AStrangerCannotJoinAnArenaThatWasOpenedToAll) {
    Endpoint endpoint("owner");
    ASSERT_EQ(chmod(domain.path().c_str(), 0755), 0);
    ASSERT_EQ(chmod(domain.pathOf("arena").c_str(), 0666), 0);
    Child child([](Line&) {
        become(stranger, stranger);
        expectNoAccess();
    });
    EXPECT_EQ(child.exitStatus(), 0);
    expectNoAccess();  // nor does its owner, from now on
    ASSERT_EQ(chmod(domain.pathOf("arena").c_str(), 0600), 0);
    const Endpoint next("next");
}

TEST_F(Access, AnArenaThatIsOnlyForReadingCannotBeJoined) {
    { const Endpoint endpoint("owner"); }
    shareDomain();
    ASSERT_EQ(chown(domain.pathOf("arena").c_str(), 0, group), 0);
    ASSERT_EQ(chmod(domain.pathOf("arena").c_str(), 0640), 0);
    Child child([](Line&) {
        become(member, group);
        expectNoAccess();
    });
    EXPECT_EQ(child.exitStatus(), 0);
}

TEST_F(Access, AnArenaThatAStrangerHasPutWhereAllMayAddFilesIsNotJoined) {
    ASSERT_EQ(chmod(domain.path().c_str(), 01777), 0);
    Child trapper([](Line&) {
        become(stranger, stranger);
        const Endpoint endpoint("trap");
    });
    EXPECT_EQ(trapper.exitStatus(), 0);
    Child child([](Line&) {
        become(member, group);
        expectNoAccess();
    });
    EXPECT_EQ(child.exitStatus(), 0);
    expectNoAccess();
    ASSERT_EQ(unlink(domain.pathOf("arena").c_str()), 0);
    const Endpoint endpoint("owner");
}

TEST_F(Access, ADirectoryThatAnybodyMayRearrangeIsNotJoined) {
    { const Endpoint endpoint("owner"); }
    for (const mode_t mode : {0777u, 0702u, 02777u}) {
        ASSERT_EQ(chmod(domain.path().c_str(), mode), 0);
        expectNoAccess();
    }
}

TEST_F(Access, ADoorbellThatAStrangerHasPutInTheWayIsNotUsed) {
    ASSERT_EQ(chmod(domain.path().c_str(), 01777), 0);
    const Endpoint endpoint("owner");
    Child trapper([&](Line&) {
        become(stranger, stranger);
        for (uint32_t index = 1; index < 20; ++index) {
            char name[16];
            std::snprintf(name, sizeof name, "bell.%08x", 0x2000 + index);
            mkfifo(domain.pathOf(name).c_str(), 0666);
        }
    });
    EXPECT_EQ(trapper.exitStatus(), 0);
    Child child([&](Line&) {
        become(member, group);
        expectNoAccess();  // the owner's arena is the owner's
    });
    EXPECT_EQ(child.exitStatus(), 0);
    const Endpoint other("other");  // the superuser may remove them
    struct stat status;
    char name[16];
    std::snprintf(name, sizeof name, "bell.%08x", spidOf(other));
    ASSERT_EQ(stat(domain.pathOf(name).c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, geteuid());
    EXPECT_EQ(status.st_mode & S_IRWXO, 0u);
}

TEST_F(Access, AUsersOwnDomainThatAnotherHasMadeIsATrap) {
    const std::string word = "access." + std::to_string(getpid());
    const std::string trap = "/dev/shm/linx." + std::to_string(member) + "." + word;
    const linxtest::ScopedVariable chosen("LINX_DOMAIN", word.c_str());
    Child trapper([&](Line&) {
        become(stranger, stranger);
        ASSERT_EQ(mkdir(trap.c_str(), 0777), 0);
        ASSERT_EQ(chmod(trap.c_str(), 01777), 0);
    });
    EXPECT_EQ(trapper.exitStatus(), 0);
    Child child([&](Line&) {
        become(member, group);
        expectNoAccess();
    });
    EXPECT_EQ(child.exitStatus(), 0);
    EXPECT_EQ(linxtest::namesIn(trap), std::vector<std::string>());
    EXPECT_EQ(rmdir(trap.c_str()), 0);
}

TEST_F(Access, ALinkInPlaceOfAUsersOwnDomainLeadsNowhere) {
    const std::string word = "access." + std::to_string(getpid());
    const std::string trap = "/dev/shm/linx." + std::to_string(member) + "." + word;
    ASSERT_EQ(chmod(domain.path().c_str(), 01777), 0);
    ASSERT_EQ(symlink(domain.path().c_str(), trap.c_str()), 0);
    {
        const linxtest::ScopedVariable chosen("LINX_DOMAIN", word.c_str());
        Child child([](Line&) {
            become(member, group);
            EXPECT_EQ(linx_open("stranger", 0, nullptr), nullptr);
            EXPECT_EQ(errno, ENOTDIR);
        });
        EXPECT_EQ(child.exitStatus(), 0);
    }
    EXPECT_EQ(domain.files(), std::vector<std::string>());
    EXPECT_EQ(unlink(trap.c_str()), 0);
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
        EXPECT_NE(hunt(endpoint, "first"), 0u);
        parent.tell();
        parent.hear();
    });
    second.hear();
    Child third([](Line&) {
        become(stranger, stranger);
        expectNoAccess();
    });
    EXPECT_EQ(third.exitStatus(), 0);
    for (const std::string& name : domain.files()) {
        struct stat status;
        ASSERT_EQ(stat(domain.pathOf(name).c_str(), &status), 0);
        EXPECT_EQ(status.st_gid, group) << name;
        EXPECT_EQ(status.st_mode & 0777u, 0660u) << name;
    }
    first.tell();
    second.tell();
    EXPECT_EQ(first.exitStatus(), 0);
    EXPECT_EQ(second.exitStatus(), 0);
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
            ASSERT_EQ(sendBytes(endpoint, to, item, pattern(size, size)), 0);
            EXPECT_TRUE(pattern(size, size) == expectSignal(endpoint, item).payload);
        }
        ASSERT_NE(attach(endpoint, to, notice), 0u);
        parent.tell();
        EXPECT_EQ(expectSignal(endpoint, notice).sender, to);
        EXPECT_EQ(send(endpoint, to, item), ECONNRESET);
        // A member reaps what another user's process left, and takes over its name.
        Endpoint next("mirror");
        EXPECT_EQ(hunt(endpoint, "mirror"), spidOf(next));
    });
    client.hear();
    mirror.kill9();
    EXPECT_EQ(client.exitStatus(), 0);
}

}  // namespace
