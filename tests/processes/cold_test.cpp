// Opening, hunting and closing by many processes at once.

#include <random>

#include "tests/kit/child.h"
#include "tests/kit/domain_test.h"
#include "tests/kit/shared.h"
#include "tests/kit/signals.h"

namespace {

using Cold = ProcessTest;

constexpr uint32_t crowd = 8;

std::string nameOfMember(uint32_t number) {
    return "member" + std::to_string(number % crowd);
}

/// Opens, hunts for everybody and closes once.
void comeAndGo(uint32_t number) {
    Endpoint endpoint(nameOfMember(number));
    ASSERT_NE(static_cast<LINX*>(endpoint), nullptr);
    EXPECT_EQ(hunt(endpoint, nameOfMember(number)), spidOf(endpoint));
    EXPECT_NE(hunt(endpoint, "anchor"), 0u);
    EXPECT_EQ(linx_hunt(endpoint, nameOfMember(number + 1).c_str(), nullptr), 0);  // may be there or not
    EXPECT_EQ(linx_hunt(endpoint, "nobody", nullptr), 0);
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
        EXPECT_EQ(hunt(anchor, nameOfMember(i)), settled);
    }
    ASSERT_EQ(linx_hunt(anchor, "nobody", nullptr), 0);
    expectNothing(anchor);
    for (const auto& member : members) member->tell();
    for (const auto& member : members) EXPECT_EQ(member->exitStatus(), 0);
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
        for (const auto& member : members) EXPECT_NE(member->hear(), 0u) << "round " << round;
        for (const auto& member : members) member->kill9();
    }
}

}  // namespace
