// Who may join a domain: file permission and nothing else.

#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

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

TEST_F(Access, TwoUsersOfAGroupShareADomain) {
    shareDomain();
    Child mirror([](Line& parent) {
        become(member, group);
        Endpoint endpoint("mirror");
        parent.tell();
        for (;;) {
            const Received received = expectSignal(endpoint, item);
            ASSERT_EQ(0, sendBytes(endpoint, received.sender, item, received.payload));
        }
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
