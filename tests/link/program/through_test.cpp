// Endpoints that reach each other through two links.

#include "tests/link/program/through.h"

#include <cerrno>

namespace {

using linktest::In;
using linktest::openIn;
using linktest::ThroughTest;

constexpr uint32_t item = 100;
constexpr uint32_t reply = 101;
constexpr uint32_t notice = 102;
constexpr uint32_t last = 103;

TEST_F(ThroughTest, WhatIsSentAcrossArrivesUnchangedAndIsAnsweredByName) {
    startBoth();
    const auto server = openIn(far, "server");
    const auto client = openIn(near, "client");
    const LinxSpid proxy = hunt(*client, "toFar/server");
    EXPECT_EQ(nameOf(*client, proxy), "toFar/server");
    for (const size_t size : {0u, 1u, 7u, 4096u, 16380u, 60000u, 1048572u}) {
        const Bytes payload = pattern(size, 7);
        ASSERT_EQ(sendBytes(*client, proxy, item, payload), 0);
        const Received received = expectSignal(*server, item);
        EXPECT_TRUE(received.payload == payload) << size;
        EXPECT_EQ(nameOf(*server, received.sender), "toNear/client");
        ASSERT_EQ(sendBytes(*server, received.sender, reply, payload), 0);
        const Received back = expectSignal(*client, reply);
        EXPECT_TRUE(back.payload == payload) << size;
        EXPECT_EQ(proxy, back.sender);
    }
}

TEST_F(ThroughTest, AHuntWaitsForWhoeverOpensOverThere) {
    configureBoth();
    const auto client = openIn(near, "client");
    ASSERT_EQ(linx_hunt(*client, "toFar/server", nullptr), 0);  // before there is a link
    startNear();
    startFar();
    awaitUp();
    const auto server = openIn(far, "server");
    EXPECT_EQ(nameOf(*client, expectSignal(*client, LINX_OS_HUNT_SIG).sender), "toFar/server");
    ASSERT_EQ(linx_hunt(*client, "toFar/other", nullptr), 0);
    const auto other = openIn(far, "other");
    EXPECT_EQ(nameOf(*client, expectSignal(*client, LINX_OS_HUNT_SIG).sender), "toFar/other");
}

TEST_F(ThroughTest, SignalsOfAllSizesKeepTheirOrder) {
    startBoth();
    const auto server = openIn(far, "server");
    const auto client = openIn(near, "client");
    const LinxSpid proxy = hunt(*client, "toFar/server");
    constexpr uint32_t count = 600;
    for (uint32_t i = 0; i < count; ++i) {
        std::vector<uint32_t> words(1 + (i % 7 == 0 ? 9000 : i % 50));
        words[0] = i;
        ASSERT_EQ(send(*client, proxy, item, words), 0);
    }
    for (uint32_t i = 0; i < count; ++i) {
        const Received received = expectSignal(*server, item);
        ASSERT_EQ(i, received.word());
        ASSERT_EQ(4 * (1 + (i % 7 == 0 ? 9000 : i % 50)), received.payload.size());
    }
    expectNothing(*server);
}

TEST_F(ThroughTest, AFarEndIsToldBehindAllThatTheFarOneHadSent) {
    startBoth();
    auto server = openIn(far, "server");
    const auto client = openIn(near, "client");
    const LinxSpid proxy = hunt(*client, "toFar/server");
    ASSERT_NE(attach(*client, proxy, notice), 0u);
    ASSERT_EQ(send(*client, proxy, item), 0);
    const LinxSpid way = expectSignal(*server, item).sender;
    for (uint32_t i = 0; i < 200; ++i) ASSERT_EQ(send(*server, way, reply, {i}), 0);
    server.reset();
    for (uint32_t i = 0; i < 200; ++i) ASSERT_EQ(i, expectSignal(*client, reply).word());
    EXPECT_EQ(proxy, expectSignal(*client, notice).sender);
    EXPECT_EQ(send(*client, proxy, item), ECONNRESET);
    server = openIn(far, "server");
    const LinxSpid next = hunt(*client, "toFar/server");
    EXPECT_NE(proxy, next);
    ASSERT_EQ(send(*client, next, last), 0);
    expectSignal(*server, last);
}

TEST_F(ThroughTest, AnEndWaitsBehindWhatAFullDestinationHasNotTaken) {
    startBoth();
    const auto server = openIn(far, "server");
    auto client = openIn(near, "client");
    const LinxSpid proxy = hunt(*client, "toFar/server");
    constexpr uint32_t count = 300;
    const std::vector<uint32_t> words(1000);
    for (uint32_t i = 0; i < count; ++i) {  // far more than the destination has credit for
        std::vector<uint32_t> numbered = words;
        numbered[0] = i;
        ASSERT_EQ(send(*client, proxy, item, numbered), 0);
    }
    client.reset();
    const Received first = expectSignal(*server, item);
    ASSERT_NE(attach(*server, first.sender, notice), 0u);
    for (uint32_t i = 1; i < count; ++i) ASSERT_EQ(i, expectSignal(*server, item).word());
    EXPECT_EQ(first.sender, expectSignal(*server, notice).sender);
}

TEST_F(ThroughTest, AKilledPeerIsTold) {
    startBoth();
    Child server([this](Line& parent) {
        const auto endpoint = openIn(far, "server");
        parent.tell();
        sendBack(*endpoint, item);
    });
    server.hear();
    const auto client = openIn(near, "client");
    const LinxSpid proxy = hunt(*client, "toFar/server");
    ASSERT_NE(attach(*client, proxy, notice), 0u);
    ASSERT_EQ(send(*client, proxy, item, {5}), 0);
    EXPECT_EQ(expectSignal(*client, item).word(), 5u);
    server.kill9();
    EXPECT_EQ(proxy, expectSignal(*client, notice).sender);
}

TEST_F(ThroughTest, TheEndOfASessionIsTheEndOfAllProxiesAndThenOfItsMark) {
    startBoth();
    const auto server = openIn(far, "server");
    const auto client = openIn(near, "client");
    const LinxSpid mark = hunt(*client, "toFar/@link");
    const LinxSpid proxy = hunt(*client, "toFar/server");
    ASSERT_NE(attach(*client, mark, last), 0u);
    ASSERT_NE(attach(*client, proxy, notice), 0u);
    ASSERT_EQ(linx_hunt(*client, "toFar/absent", nullptr), 0);
    farLink->end(SIGKILL);
    EXPECT_EQ(proxy, expectSignal(*client, notice).sender);
    EXPECT_EQ(mark, expectSignal(*client, last).sender);
    startFar();
    EXPECT_NE(mark, hunt(*client, "toFar/@link"));
    EXPECT_NE(proxy, hunt(*client, "toFar/server"));
    const auto absent = openIn(far, "absent");
    EXPECT_EQ(nameOf(*client, expectSignal(*client, LINX_OS_HUNT_SIG).sender), "toFar/absent") << "the hunt went on";
}

TEST_F(ThroughTest, AKilledLinkIsTheEndOfItsProxiesAndARestartedOneBeginsAnew) {
    startBoth();
    const auto server = openIn(far, "server");
    const auto client = openIn(near, "client");
    for (int i = 0; i < 3; ++i) {
        const LinxSpid proxy = hunt(*client, "toFar/server");
        ASSERT_NE(attach(*client, proxy, notice), 0u);
        ASSERT_EQ(send(*client, proxy, item, {1}), 0);
        const LinxSpid way = expectSignal(*server, item).sender;
        ASSERT_NE(attach(*server, way, notice), 0u);
        nearLink->end(SIGKILL);
        EXPECT_EQ(proxy, expectSignal(*client, notice).sender);
        EXPECT_EQ(way, expectSignal(*server, notice).sender);
        startNear();
    }
}

TEST_F(ThroughTest, NothingIsReachedThatIsNotExported) {
    startBoth("", "export = [\"open\", \"ts*\"]\n");
    const auto closed = openIn(far, "closed");
    const auto server = openIn(far, "tsServer");
    const auto client = openIn(near, "client");
    ASSERT_EQ(linx_hunt(*client, "toFar/closed", nullptr), 0);
    EXPECT_TRUE(nearLink->hasLogged("toFar/closed is refused over there: not exported"));
    const LinxSpid proxy = hunt(*client, "toFar/tsServer");
    ASSERT_EQ(send(*client, proxy, item), 0);
    const LinxSpid way = expectSignal(*server, item).sender;
    ASSERT_EQ(send(*server, way, reply), 0);
    EXPECT_EQ(proxy, expectSignal(*client, reply).sender);
    // Somebody whom nobody here may hunt for uses the way that was opened for another.
    ASSERT_EQ(send(*closed, way, reply, {1}), 0);
    ASSERT_EQ(send(*server, way, last), 0);
    expectSignal(*client, last);
    expectNothing(*client);
}

TEST_F(ThroughTest, OrdersToShutDownAreNotCarriedUnlessAllowed) {
    startBoth(all, std::string(all) + "allow-control = false\n");
    const auto server = openIn(far, "server");
    const auto client = openIn(near, "client");
    const LinxSpid proxy = hunt(*client, "toFar/server");
    ASSERT_EQ(send(*client, proxy, 1280), 0);
    ASSERT_EQ(send(*client, proxy, 1281, {3}), 0);
    ASSERT_EQ(send(*client, proxy, last), 0);
    expectSignal(*server, last);
    expectNothing(*server);
    nearLink->end(SIGKILL);
    EXPECT_TRUE(farLink->hasLogged("toNear: refused so far: control 2"));
}

TEST_F(ThroughTest, WhatIsLostWithASessionIsCounted) {
    startBoth();
    const auto server = openIn(far, "server");
    const auto client = openIn(near, "client");
    const LinxSpid proxy = hunt(*client, "toFar/server");
    const std::vector<uint32_t> words(25000);  // of 100,000 bytes each: credit for two
    for (int i = 0; i < 10; ++i) ASSERT_EQ(send(*client, proxy, item, words), 0);
    expectSignal(*server, item);
    ASSERT_NE(attach(*client, proxy, notice), 0u);
    farLink->end(SIGKILL);
    EXPECT_EQ(proxy, expectSignal(*client, notice).sender);
    EXPECT_TRUE(nearLink->hasLogged("toFar is down: the connection was lost"));
    EXPECT_TRUE(nearLink->hasLoggedPart("toFar: lost with the session: server "));
}

TEST_F(ThroughTest, OrdersToShutDownAreCarriedWhereAllowed) {
    startBoth(all, std::string(all) + "allow-control = true\n");
    const auto server = openIn(far, "server");
    const auto client = openIn(near, "client");
    ASSERT_EQ(send(*client, hunt(*client, "toFar/server"), 1280), 0);
    expectSignal(*server, 1280);
}

TEST_F(ThroughTest, WhatIsImportedIsThereWithoutAHunt) {
    startBoth("import = [\"server\"]\n");
    const auto server = openIn(far, "server");
    const auto client = openIn(near, "client");
    ASSERT_EQ(linx_hunt(*client, "toFar/server", nullptr), 0);
    expectSignal(*client, LINX_OS_HUNT_SIG);
}

TEST_F(ThroughTest, ANameThatIsTakenHereIsRefused) {
    startBoth();
    const auto taken = openIn(near, "toFar/server");
    const auto server = openIn(far, "server");
    const auto witness = openIn(far, "witness");
    // The far one reaches somebody here, and would have to become a proxy of a name that is taken.
    const auto target = openIn(near, "target");
    const LinxSpid way = hunt(*server, "toNear/target");
    ASSERT_EQ(send(*server, way, item), 0);
    EXPECT_TRUE(nearLink->hasLogged("cannot open toFar/server: Address already in use"));
    ASSERT_EQ(send(*witness, way, last), 0);
    expectSignal(*target, last);
    expectNothing(*target);
}

TEST_F(ThroughTest, NamesNestWhereTransitIsAllowed) {
    // near -> far -> third, whose link "toThird" is at the far node.
    const linxtest::TestDomain third;
    const std::string thirdKey = keygen("third.key");
    const std::string thirdAddress = linktest::TakenPort().address();
    configureBoth(all, std::string(all) + "transit = true\n[[link]]\nname = \"toThird\"\npeer = \"" + thirdKey +
                           "\"\nconnect = \"" + thirdAddress + "\"\nexport = [\"*\"]\ntransit = true\n");
    configure("key = \"third.key\"\nlisten = \"" + thirdAddress + "\"\ndomain = \"" + third.path() + "\"\n" +
                  linkTo(peerKey, "toFar") + all,
              "third.conf");
    linktest::Running thirdLink(directory, "third.conf");
    startNear();
    startFar();
    awaitUp();
    const auto server = openIn(third, "server");
    const auto client = openIn(near, "client");
    const LinxSpid proxy = hunt(*client, "toFar/toThird/server");
    ASSERT_NE(attach(*client, proxy, notice), 0u);
    ASSERT_EQ(send(*client, proxy, item, {9}), 0);
    const Received received = expectSignal(*server, item);
    EXPECT_EQ(received.word(), 9u);
    EXPECT_EQ(nameOf(*server, received.sender), "toFar/toNear/client");
    ASSERT_EQ(send(*server, received.sender, reply, {10}), 0);
    EXPECT_EQ(expectSignal(*client, reply).word(), 10u);
    // In a circle it would come back to where it began.
    ASSERT_EQ(linx_hunt(*client, "toFar/toNear/absent", nullptr), 0);
    EXPECT_TRUE(farLink->hasLogged("toNear/absent is refused over there: loop"));
    thirdLink.end(SIGKILL);
    EXPECT_EQ(proxy, expectSignal(*client, notice).sender);
}

TEST_F(ThroughTest, WhoeverTakesTheNameOfOneThatHasEndedComesBehindItsEnd) {
    const std::string patient = std::string(all) + "tolerance = 30000\n";
    startBoth(patient, patient);
    auto server = openIn(far, "server");
    const auto client = openIn(near, "client");
    const LinxSpid first = hunt(*client, "toFar/server");
    ASSERT_NE(attach(*client, first, notice), 0u);
    ASSERT_EQ(send(*client, first, item, {1}), 0);
    const LinxSpid way = expectSignal(*server, item).sender;
    // The link learns of all that follows at once.
    farLink->stop();
    ASSERT_EQ(send(*server, way, reply, {1}), 0);
    server.reset();
    server = openIn(far, "server");
    ASSERT_EQ(send(*server, hunt(*server, "toNear/client"), reply, {2}), 0);
    farLink->send(SIGCONT);
    EXPECT_EQ(expectSignal(*client, reply).word(), 1u);
    // Whoever reads late gets notices behind all that has come: which of the two is first is left open.
    const std::optional<Received> end = receive(*client, patience, {notice});
    ASSERT_TRUE(end.has_value());
    EXPECT_EQ(first, end->sender);
    const Received second = expectSignal(*client, reply);
    EXPECT_EQ(second.word(), 2u);
    EXPECT_NE(first, second.sender);
    EXPECT_EQ(nameOf(*client, second.sender), "toFar/server");
}

TEST_F(ThroughTest, TheEndOfASenderIsToldWhereItsDestinationEndedBefore) {
    const std::string patient = std::string(all) + "tolerance = 30000\n";
    startBoth(patient, patient);
    auto server = openIn(far, "server");
    auto slow = openIn(near, "slow");
    const auto client = openIn(near, "client");
    const LinxSpid proxy = hunt(*client, "toFar/server");
    ASSERT_NE(attach(*client, proxy, notice), 0u);
    // More than the slow one has credit for, so the rest waits at its proxy, and behind it the mark of the end.
    const LinxSpid toSlow = hunt(*server, "toNear/slow");
    for (int i = 0; i < 100; ++i) ASSERT_EQ(send(*server, toSlow, item, std::vector<uint32_t>(2500)), 0);
    server.reset();
    const auto witness = openIn(far, "witness");
    const LinxSpid toWitness = hunt(*client, "toFar/witness");
    ASSERT_EQ(send(*client, toWitness, last, {}), 0);
    expectSignal(*witness, last);
    slow.reset();
    EXPECT_EQ(proxy, expectSignal(*client, notice).sender);
}

TEST_F(ThroughTest, ASlowDestinationDelaysNobodyElse) {
    startBoth();
    const auto slow = openIn(far, "slow");
    const auto quick = openIn(far, "quick");
    const auto client = openIn(near, "client");
    const LinxSpid toSlow = hunt(*client, "toFar/slow");
    const LinxSpid toQuick = hunt(*client, "toFar/quick");
    const std::vector<uint32_t> words(1000);
    for (int i = 0; i < 1000; ++i) ASSERT_EQ(send(*client, toSlow, item, words), 0);
    for (uint32_t i = 0; i < 200; ++i) {
        ASSERT_EQ(send(*client, toQuick, item, {i}), 0);
        ASSERT_EQ(i, expectSignal(*quick, item).word());
    }
    // Nor does it take more of the memory over there than it has credit for: the rest waits here.
    EXPECT_LT(far.arenaBytes(), 3u << 20);
    for (int i = 0; i < 1000; ++i) expectSignal(*slow, item);
}

}  // namespace
