// A process that has opened an endpoint with the rights of another user, and given them up since.

#include <grp.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include "tests/processes/support/child.h"
#include "tests/processes/support/process_test.h"
#include "tests/processes/support/signals.h"

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
    ASSERT_EQ(0, setgroups(0, nullptr));
    ASSERT_EQ(0, setresgid(nobody, nobody, nobody));
    ASSERT_EQ(0, setresuid(nobody, nobody, nobody));
    dieWithParent();
}

TEST_F(Privileges, OnceGivenUpAnEndpointGoesOnToTalkAndEndsInOrder) {
    Endpoint peer("peer");
    Child child([](Line& parent) {
        LINX* endpoint = linx_open("endpoint", 0, nullptr);
        const LinxSpid known = hunt(endpoint, "peer");
        ASSERT_EQ(0, send(endpoint, known, item));
        giveUpRights();
        for (uint32_t size = 1; size < 1000000; size *= 7) {  // much of it is leased only now
            ASSERT_EQ(0, sendBytes(endpoint, known, item, pattern(size, size)));
        }
        parent.tell();
        expectSignal(endpoint, item);  // also from one whom it does not know
        EXPECT_NE(0u, linx_request_tmo(endpoint, 0, nullptr));
        expectSignal(endpoint, LINX_OS_TIMEOUT_SIG);
        EXPECT_EQ(0, linx_hunt(endpoint, "late", nullptr));
        parent.tell();
        expectSignal(endpoint, LINX_OS_HUNT_SIG);
        EXPECT_EQ(0, linx_close(endpoint));
        parent.tell();
        parent.hear();
    });
    const LinxSpid spid = expectSignal(peer, item).sender;
    ASSERT_NE(0u, attach(peer, spid, notice));
    for (uint32_t size = 1; size < 1000000; size *= 7) {
        EXPECT_TRUE(pattern(size, size) == expectSignal(peer, item).payload);
    }
    child.hear();
    Endpoint stranger("stranger");
    EXPECT_EQ(0, send(stranger, spid, item));
    child.hear();
    const Endpoint late("late");
    child.hear();
    EXPECT_EQ(spid, expectSignal(peer, notice).sender);  // though its process lives
    const Endpoint next("endpoint");
    child.tell();
    EXPECT_EQ(0, child.exitStatus());
}

TEST_F(Privileges, OnceGivenUpStrangersCannotBeMet) {
    Endpoint stranger("stranger");
    Child child([](Line& parent) {
        Endpoint endpoint("endpoint");
        giveUpRights();
        parent.tell(spidOf(endpoint));
        const LinxSpid sender = expectSignal(endpoint, item).sender;
        EXPECT_EQ(EACCES, send(endpoint, sender, item));
        EXPECT_EQ(-1, linx_hunt(endpoint, "stranger", nullptr));
        EXPECT_EQ(EACCES, errno);
        LinxSignal* signal = linx_alloc(endpoint, sizeof(LinxSignal), notice);
        EXPECT_EQ(0u, linx_attach(endpoint, &signal, sender));
        EXPECT_EQ(EACCES, errno);
        EXPECT_EQ(nullptr, signal);
        EXPECT_EQ(nullptr, linx_open("other", 0, nullptr));
        EXPECT_EQ(EACCES, errno);
    });
    EXPECT_EQ(0, send(stranger, child.hear(), item));
    EXPECT_EQ(0, child.exitStatus());
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
            EXPECT_EQ(nullptr, linx_alloc(endpoint, 300000, item));
            EXPECT_EQ(EACCES, errno);
            EXPECT_EQ(0, linx_close(endpoint));
        });
        EXPECT_EQ(spid, heir.hear());
        parent.tell(spid);
        EXPECT_EQ(nullptr, linx_alloc(endpoint, sizeof(LinxSignal), item));
        EXPECT_EQ(ECHILD, errno);
        parent.hear();
        heir.tell();
        EXPECT_EQ(0, heir.exitStatus());
    });
    Endpoint supervisor("supervisor");
    const LinxSpid spid = child.hear();
    ASSERT_NE(0u, attach(supervisor, spid, notice));
    child.tell();
    EXPECT_EQ(spid, expectSignal(supervisor, notice).sender);
    EXPECT_EQ(0, child.exitStatus());
    const Endpoint next("endpoint");
}

}  // namespace
