// Opening, hunting and closing by many processes at once.

#include <random>

#include "tests/processes/support/child.h"
#include "tests/processes/support/process_test.h"
#include "tests/processes/support/shared.h"
#include "tests/processes/support/signals.h"

namespace {

using Cold = ProcessTest;

constexpr uint32_t crowd = 8;

std::string nameOfMember(uint32_t number) {
    return "member" + std::to_string(number % crowd);
}

/// Opens, hunts for everybody and closes once.
void comeAndGo(uint32_t number) {
    Endpoint endpoint(nameOfMember(number));
    ASSERT_NE(nullptr, static_cast<LINX*>(endpoint));
    EXPECT_EQ(spidOf(endpoint), hunt(endpoint, nameOfMember(number)));
    EXPECT_NE(0u, hunt(endpoint, "anchor"));
    EXPECT_EQ(0, linx_hunt(endpoint, nameOfMember(number + 1).c_str(), nullptr));  // may be there or not
    EXPECT_EQ(0, linx_hunt(endpoint, "nobody", nullptr));
}

/// Stays open until told to go.
void settleDown(uint32_t number, Line& parent) {
    Endpoint endpoint(nameOfMember(number));
    parent.tell(spidOf(endpoint));
    parent.hear();
}

using Crowd = std::vector<std::unique_ptr<Child>>;

/// Every member has settled down under its name and is found there; nobody else is.
void expectAllThere(LINX* anchor, const Crowd& members) {
    for (uint32_t i = 0; i < crowd; ++i) {
        const LinxSpid settled = members[i]->hear();
        EXPECT_EQ(settled, hunt(anchor, nameOfMember(i)));
    }
    ASSERT_EQ(0, linx_hunt(anchor, "nobody", nullptr));
    expectNothing(anchor);
    for (const auto& member : members) member->tell();
    for (const auto& member : members) EXPECT_EQ(0, member->exitStatus());
}

TEST_F(Cold, ACrowdComesAndGoesAndAllAreFoundInTheEnd) {
    Endpoint anchor("anchor");
    Crowd members;
    for (uint32_t i = 0; i < crowd; ++i) {
        members.push_back(std::make_unique<Child>([i](Line& parent) {
            for (int round = 0; round < 200; ++round) comeAndGo(i);
            settleDown(i, parent);
        }));
    }
    expectAllThere(anchor, members);
}

TEST_F(Cold, ACrowdGoesOnThoughOneOfItIsKilledAgainAndAgain) {
    const Shared<Counters> shared;
    Endpoint anchor("anchor");
    Crowd members;
    for (uint32_t i = 0; i + 1 < crowd; ++i) {
        members.push_back(std::make_unique<Child>([&shared, i](Line& parent) {
            while (!shared->finish) {
                comeAndGo(i);
                ++shared->progress;
            }
            settleDown(i, parent);
        }));
    }
    const auto last = [&shared](Line&) {
        for (;;) {
            comeAndGo(crowd - 1);
            ++shared->steps;
        }
    };
    std::mt19937 random(2);
    for (int round = 0; round < 30; ++round) {
        shared->steps = 0;
        Child killed(last);
        ASSERT_TRUE(shared->steps.reaches(static_cast<uint32_t>(random() % 40))) << "round " << round;
        killed.kill9();
        ASSERT_TRUE(shared->progress.reaches(shared->progress + 2 * crowd)) << "round " << round;
    }
    shared->finish = true;
    members.push_back(std::make_unique<Child>([](Line& parent) { settleDown(crowd - 1, parent); }));
    expectAllThere(anchor, members);
}

TEST_F(Cold, AKilledCrowdLeavesItsNames) {
    Endpoint anchor("anchor");
    for (int round = 0; round < 10; ++round) {
        Crowd members;
        for (uint32_t i = 0; i < crowd; ++i) {
            members.push_back(std::make_unique<Child>([i](Line& parent) { settleDown(i, parent); }));
        }
        for (const auto& member : members) EXPECT_NE(0u, member->hear()) << "round " << round;
        for (const auto& member : members) member->kill9();
    }
}

}  // namespace
