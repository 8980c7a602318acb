#include <cerrno>
#include <stdexcept>
#include <string>

#include "fixture.h"

namespace {

class SupervisionTest : public EndpointTest {
protected:
    void knowPeer() {
        platform.answerHunts("Peer", {7});
        endpoint.ResolveDestination("Peer", true);
        platform.takeCalls();
    }
};

TEST_F(SupervisionTest, WithoutInitItIsRefused) {
    EXPECT_EQ(unopened.Attach("Peer", 500), -1);
    EXPECT_EQ(unopened.Attach(nullptr, 500), -1) << "the name is not looked at";
    EXPECT_THAT(platform.takeCalls(), ElementsAre("log 2 linxIpc:363 LinxIpc::Attach use of un-initialized object",
                                                  "log 2 linxIpc:363 LinxIpc::Attach use of un-initialized object"));
}

TEST_F(SupervisionTest, AKnownPeerIsAttachedToWithAnEmptySignal) {
    knowPeer();
    EXPECT_EQ(endpoint.Attach("Peer", 500), 0);
    EXPECT_THAT(platform.takeCalls(), ElementsAre("linx_alloc(4, 500) = s2", "linx_attach(s2, 7)"));
    EXPECT_THAT(platform.signalsInHand(), IsEmpty());
}

TEST_F(SupervisionTest, AnUnknownPeerIsHuntedFirst) {
    platform.answerHunts("Peer", {7});
    EXPECT_EQ(endpoint.Attach("Peer", 500), 0);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre("log 32 linxIpc:941 LinxIpc::ResolveDestination: calling linx_hunt, destination = Peer",
                            "linx_hunt(\"Peer\", null)", "linx_receive_w_tmo(100, {1, 251})", "linx_sender(s1)",
                            "linx_free_buf(s1)", "linx_alloc(4, 500) = s2", "linx_attach(s2, 7)"));
}

TEST_F(SupervisionTest, AnAbsentPeerIsLoggedAndRemembered) {
    EXPECT_EQ(endpoint.Attach("Absent", 500), -1);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre("log 32 linxIpc:941 LinxIpc::ResolveDestination: calling linx_hunt, destination = Absent",
                            "linx_hunt(\"Absent\", null)", "linx_receive_w_tmo(100, {1, 251})",
                            "log 2 linxIpc:973 LinxIpc::ResolveDestination: unresolved",
                            "log 2 linxIpc:376 LinxIpc::Attach: cannot resolve destination"));
    EXPECT_EQ(endpoint.Attach("Absent", 500), -1);
    EXPECT_THAT(platform.takeCalls(), IsEmpty());
}

TEST_F(SupervisionTest, AFailedHuntIsLogged) {
    platform.fail("linx_hunt", {ENOSPC});
    EXPECT_EQ(endpoint.Attach("Peer", 500), -1);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre("log 32 linxIpc:941 LinxIpc::ResolveDestination: calling linx_hunt, destination = Peer",
                            "linx_hunt(\"Peer\", null)", "log 2 linxIpc:946 LinxIpc::ResolveDestination: error 28",
                            "log 2 linxIpc:376 LinxIpc::Attach: cannot resolve destination"));
}

TEST_F(SupervisionTest, ARefusedAttachIsLoggedAndReturned) {
    knowPeer();
    platform.fail("linx_attach", {ESRCH});
    EXPECT_EQ(endpoint.Attach("Peer", 500), 3);
    EXPECT_THAT(platform.takeCalls(), ElementsAre("linx_alloc(4, 500) = s2", "linx_attach(s2, 7)",
                                                  "log 2 linxIpc:393 LinxIpc::Attach(): failed to attach"));
    EXPECT_EQ(platform.signalsFreed, 1u) << "that of the hunt only";
    EXPECT_EQ(endpoint.Attach("Peer", 500), 0) << "the peer is still known";
    EXPECT_THAT(platform.takeCalls(), ElementsAre("linx_alloc(4, 500) = s3", "linx_attach(s3, 7)"));
}

TEST_F(SupervisionTest, AFailedAllocationOfTheNoticeIsLeftToLinx) {
    knowPeer();
    platform.fail("linx_alloc", {ENOMEM});
    platform.fail("linx_attach", {EINVAL});
    EXPECT_EQ(endpoint.Attach("Peer", 500), 22);
    EXPECT_THAT(platform.takeCalls(), ElementsAre("linx_alloc(4, 500) = null", "linx_attach(null, 7)",
                                                  "log 2 linxIpc:393 LinxIpc::Attach(): failed to attach"));
}

TEST_F(SupervisionTest, EveryAttachHasANoticeOfItsOwn) {
    knowPeer();
    EXPECT_EQ(endpoint.Attach("Peer", 500), 0);
    EXPECT_EQ(endpoint.Attach("Peer", 501), 0);
    EXPECT_THAT(platform.takeCalls(), ElementsAre("linx_alloc(4, 500) = s2", "linx_attach(s2, 7)",
                                                  "linx_alloc(4, 501) = s3", "linx_attach(s3, 7)"));
}

TEST_F(SupervisionTest, AReopenedPeerIsSupervisedAsItIsRememberedUntilItIsSentTo) {
    knowPeer();
    platform.answerHunts("Peer", {17});
    platform.setName(17, "Peer");
    EXPECT_EQ(endpoint.Attach("Peer", 500), 0);
    EXPECT_EQ(platform.takeCalls().back(), "linx_attach(s2, 7)");
    EXPECT_EQ(endpoint.ResolveDestination("Peer", true), 0);
    EXPECT_EQ(endpoint.Attach("Peer", 500), 0);
    EXPECT_EQ(platform.takeCalls().back(), "linx_attach(s4, 7)") << "to seek it does not change what is remembered";

    platform.fail("linx_send", {ECONNRESET});
    IpcMessage message;
    EXPECT_EQ(endpoint.Notify("Peer", message, true), 0);
    EXPECT_EQ(endpoint.Attach("Peer", 500), 0);
    EXPECT_EQ(platform.takeCalls().back(), "linx_attach(s8, 17)");
}

TEST_F(SupervisionTest, AReopenedPeerIsSupervisedAnewOnceASignalFromItIsReceived) {
    knowPeer();
    platform.setName(17, "Peer");
    platform.arrive(17, 300);
    endpoint.Receive(-1, 0, LinxIpc::emptyString, nullptr);
    EXPECT_EQ(endpoint.Attach("Peer", 500), 0);
    EXPECT_EQ(platform.takeCalls().back(), "linx_attach(s3, 17)");
}

TEST_F(SupervisionTest, ANullNameThrowsBeforeAnythingHappens) {
    EXPECT_THROW(endpoint.Attach(nullptr, 500), std::logic_error);
    EXPECT_THAT(platform.takeCalls(), IsEmpty());
}

TEST_F(SupervisionTest, ANoticeIsDispatchedLikeAnySignalAndNamesThePeer) {
    knowPeer();
    endpoint.RegisterHandler(500, noteMessage, named("ended"));
    endpoint.Attach("Peer", 500);
    platform.arrive(7, 500);
    EXPECT_EQ(endpoint.Receive(-1, 0, LinxIpc::emptyString, nullptr), 0);
    EXPECT_THAT(platform.takeCalls(), ::testing::Contains("ended: 500 from Peer ''"));
}

TEST_F(SupervisionTest, ASpidOfZeroFromAHuntIsUsedAsItIs) {
    platform.answerHunts("Odd", {0});
    EXPECT_EQ(endpoint.Attach("Odd", 500), 0);
    EXPECT_EQ(platform.takeCalls().back(), "linx_attach(s2, 0)");
    EXPECT_EQ(endpoint.Attach("Odd", 500), -1);
    EXPECT_THAT(platform.takeCalls(), IsEmpty());
}

}  // namespace
