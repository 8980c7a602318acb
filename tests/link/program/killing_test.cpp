// Traffic both ways between two domains while the links and the servers are killed.

#include <random>

#include "tests/kit/shared.h"
#include "tests/link/program/through.h"

namespace {

using linktest::In;
using linktest::ThroughTest;

constexpr uint32_t item = 100;
constexpr uint32_t notice = 102;
constexpr uint32_t shortWait = 20;

/// What both ends have seen.
struct Seen {
    Count taken;
    Count notices;
    Count meetings;
    std::atomic<bool> finish;
};

/// Hunts for `peer`, sends it numbered signals of many sizes until it is told of its end, and begins anew. What it
/// has from one sender counts up, without a gap: a gap would be a loss within a session.
void talk(const linxtest::TestDomain& domain, const std::string& own, const std::string& peer, Seen& seen) {
    const In in(domain);
    Endpoint endpoint(own);
    ASSERT_EQ(linx_hunt(endpoint, peer.c_str(), nullptr), 0);
    LinxSpid to = 0;
    uint32_t sent = 0;
    LinxSpid from = 0;
    uint32_t next = 0;
    bool isHeldUp = false;
    while (!seen.finish) {
        const std::optional<Received> received = receive(endpoint, to == 0 || isHeldUp ? shortWait : 0);
        if (received && received->number == LINX_OS_HUNT_SIG) {
            to = received->sender;
            ASSERT_NE(attach(endpoint, to, notice), 0u);
            ++seen.meetings;
        } else if (received && received->number == notice) {
            EXPECT_EQ(to, received->sender);
            ++seen.notices;
            to = 0;
            ASSERT_EQ(linx_hunt(endpoint, peer.c_str(), nullptr), 0);
        } else if (received) {
            // A proxy's first signal is the first that its session has carried: from there on none is missing.
            if (received->sender != from) next = received->word();
            from = received->sender;
            ASSERT_EQ(next++, received->word());
            ASSERT_EQ(pattern(received->payload.size() - 4, received->word()),
                      Bytes(received->payload.begin() + 4, received->payload.end()));
            ++seen.taken;
        }
        if (to == 0) continue;
        // No more than the other one keeps up with: it may be killed with all of it.
        Bytes payload = pattern(sent % 50 == 0 ? 40000 : sent % 300, sent);
        const auto* const number = reinterpret_cast<const unsigned char*>(&sent);
        payload.insert(payload.begin(), number, number + sizeof sent);
        if (!received || received->number != notice) {
            const int failure = sendBytes(endpoint, to, item, payload);
            // The link falls behind where the machine is busy; then the memory for more comes back as it catches up.
            isHeldUp = failure == ENOMEM;
            ASSERT_TRUE(failure == 0 || failure == ECONNRESET || isHeldUp) << failure;
            if (!isHeldUp) ++sent;
        }
        if (sent % 64 == 0) usleep(1000);
    }
}

TEST_F(ThroughTest, WhateverIsKilledNothingIsDoubledOvertakenOrMissingFromASession) {
    startBoth();
    const Shared<Seen> atNear;
    const Shared<Seen> atFar;
    const auto begin = [&](const linxtest::TestDomain& domain, const char* own, const char* peer, Seen& seen) {
        return std::make_unique<Child>([&domain, own, peer, &seen](Line&) { talk(domain, own, peer, seen); });
    };
    const auto client = begin(near, "client", "toFar/server", *atNear);
    auto server = begin(far, "server", "toNear/client", *atFar);
    std::minstd_rand random(20);
    for (int round = 0; round < 24; ++round) {
        ASSERT_TRUE(atNear->taken.reaches(atNear->taken + 20 + static_cast<uint32_t>(random() % 200))) << round;
        ASSERT_TRUE(atFar->taken.reaches(atFar->taken + 20)) << round;
        // What was counted may have come before the last end was told: only who has met is told of the next one.
        const uint32_t told = atNear->notices;
        ASSERT_TRUE(atNear->meetings.reaches(told + 1)) << round;
        switch (random() % 3) {
            case 0:
                nearLink->end(SIGKILL);
                startNear();
                break;
            case 1:
                farLink->end(SIGKILL);
                startFar();
                break;
            default:
                server->kill9();
                server = begin(far, "server", "toNear/client", *atFar);
        }
        ASSERT_TRUE(atNear->notices.reaches(told + 1))
            << round << ": the end is not told\nnear: " << nearLink->log() << "far: " << farLink->log();
    }
    atNear->finish = atFar->finish = true;
    EXPECT_EQ(client->exitStatus(), 0);
    EXPECT_EQ(server->exitStatus(), 0);
    EXPECT_GE(atNear->meetings, 24u);
}

}  // namespace
