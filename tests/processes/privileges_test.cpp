// A process that has opened an endpoint with the rights of another user, and given them up since.

#include <grp.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include "tests/kit/child.h"
#include "tests/kit/domain_test.h"
#include "tests/kit/signals.h"

namespace {

constexpr uid_t nobody = 65534;
constexpr uint32_t item = 100;
constexpr uint32_t notice = 101;

class Privileges : public ProcessTest {
protected:
    void SetUp() override {
        if (geteuid() != 0) GTEST_SKIP() << "only the superuser has rights to give up";
    }
};

void giveUpRights() {
    ASSERT_EQ(setgroups(0, nullptr), 0);
    ASSERT_EQ(setresgid(nobody, nobody, nobody), 0);
    ASSERT_EQ(setresuid(nobody, nobody, nobody), 0);
    dieWithParent();
}

TEST_F(Privileges, OnceGivenUpAnEndpointGoesOnToTalkAndEndsInOrder) {
    Endpoint peer("peer");
    Child child([](Line& parent) {
        LINX* endpoint = linx_open("endpoint", 0, nullptr);
        const LinxSpid known = hunt(endpoint, "peer");
        ASSERT_EQ(send(endpoint, known, item), 0);
        giveUpRights();
        for (uint32_t size = 1; size < 1000000; size *= 7) {  // much of it is leased only now
            ASSERT_EQ(sendBytes(endpoint, known, item, pattern(size, size)), 0);
        }
        parent.tell();
        expectSignal(endpoint, item);  // also from one whom it does not know
        EXPECT_NE(linx_request_tmo(endpoint, 0, nullptr), 0u);
        expectSignal(endpoint, LINX_OS_TIMEOUT_SIG);
        EXPECT_EQ(linx_hunt(endpoint, "late", nullptr), 0);
        parent.tell();
        expectSignal(endpoint, LINX_OS_HUNT_SIG);
        EXPECT_EQ(linx_close(endpoint), 0);
        parent.tell();
        parent.hear();
    });
    const LinxSpid spid = expectSignal(peer, item).sender;
    ASSERT_NE(attach(peer, spid, notice), 0u);
    for (uint32_t size = 1; size < 1000000; size *= 7) {
        EXPECT_TRUE(pattern(size, size) == expectSignal(peer, item).payload);
    }
    child.hear();
    Endpoint stranger("stranger");
    EXPECT_EQ(send(stranger, spid, item), 0);
    child.hear();
    const Endpoint late("late");
    child.hear();
    EXPECT_EQ(expectSignal(peer, notice).sender, spid);  // though its process lives
    const Endpoint next("endpoint");
    child.tell();
    EXPECT_EQ(child.exitStatus(), 0);
}

TEST_F(Privileges, OnceGivenUpStrangersCannotBeMet) {
    Endpoint stranger("stranger");
    Child child([](Line& parent) {
        Endpoint endpoint("endpoint");
        giveUpRights();
        parent.tell(spidOf(endpoint));
        const LinxSpid sender = expectSignal(endpoint, item).sender;
        EXPECT_EQ(send(endpoint, sender, item), EACCES);
        EXPECT_EQ(linx_hunt(endpoint, "stranger", nullptr), -1);
        EXPECT_EQ(errno, EACCES);
        LinxSignal* signal = linx_alloc(endpoint, sizeof(LinxSignal), notice);
        EXPECT_EQ(linx_attach(endpoint, &signal, sender), 0u);
        EXPECT_EQ(errno, EACCES);
        EXPECT_EQ(signal, nullptr);
        EXPECT_EQ(linx_open("other", 0, nullptr), nullptr);
        EXPECT_EQ(errno, EACCES);
    });
    EXPECT_EQ(send(stranger, child.hear(), item), 0);
    EXPECT_EQ(child.exitStatus(), 0);
    expectNothing(stranger);
}

TEST_F(Privileges, ACloseThatCannotBeToldIsToldByTheEndOfTheProcess) {
    Child child([](Line& parent) {
        LINX* endpoint = linx_open("endpoint", 0, nullptr);
        const LinxSpid spid = spidOf(endpoint);
        giveUpRights();
        Child heir([&](Line& giver) {
            giver.tell(spidOf(endpoint));
            giver.hear();
            // The lock cannot be had here: the child of one without rights cannot open its file.
            EXPECT_EQ(linx_alloc(endpoint, 300000, item), nullptr);
            EXPECT_EQ(errno, EACCES);
            EXPECT_EQ(linx_close(endpoint), 0);
        });
        EXPECT_EQ(heir.hear(), spid);
        parent.tell(spid);
        EXPECT_EQ(linx_alloc(endpoint, sizeof(LinxSignal), item), nullptr);
        EXPECT_EQ(errno, ECHILD);
        parent.hear();
        heir.tell();
        EXPECT_EQ(heir.exitStatus(), 0);
    });
    Endpoint supervisor("supervisor");
    const LinxSpid spid = child.hear();
    ASSERT_NE(attach(supervisor, spid, notice), 0u);
    child.tell();
    EXPECT_EQ(expectSignal(supervisor, notice).sender, spid);
    EXPECT_EQ(child.exitStatus(), 0);
    const Endpoint next("endpoint");
}

}  // namespace
