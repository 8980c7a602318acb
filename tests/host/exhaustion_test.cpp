// Private memory that runs out, at every place where an operation asks for some: the operation works nevertheless, or
// says so and has freed its signal. Nothing else is lost.

#include <cerrno>

#include "host/mailbox/doorbell.h"
#include "host/mailbox/take_all_stack.h"
#include "host/system/clock.h"
#include "tests/host/endpoints.h"
#include "tests/host/interposed.h"
#include "tests/kit/deliver.h"
#include "tests/kit/failing_new.h"
#include "tests/kit/few_descriptors.h"

namespace linx {
namespace {

using linxtest::KnownEndpoint;
using linxtest::newThatFails;

/// What an operation has said.
struct Answer {
    bool ok;
    int error;
};
Answer answerOf(bool ok) {
    return {ok, errno};
}

class ExhaustionTest : public linxtest::ArenaDomainTest {
protected:
    /// The endpoints that an operation is tried with, made anew for each try.
    struct Scene {
        KnownEndpoint one{"one"};
        KnownEndpoint two{"two"};
    };

    /// Lets the first `new` of an operation fail, then the second, until it asks for none any more. `arrange(scene)`
    /// prepares each try, `act(scene)` answers, and `check(scene, answer)` sees what has become of it. Returns how
    /// many there were.
    template <class Arrange, class Act, class Check>
    unsigned failEachNew(Arrange arrange, Act act, Check check) {
        for (unsigned n = 1;; ++n) {
            SCOPED_TRACE(n);
            bool failed;
            {
                Scene scene;
                arrange(scene);
                newThatFails = n;
                const Answer answer = act(scene);
                failed = newThatFails == 0;
                newThatFails = 0;
                if (!answer.ok) {
                    EXPECT_TRUE(failed);
                    EXPECT_EQ(answer.error, ENOMEM);
                }
                check(scene, answer);
                EXPECT_EQ(linxtest::brokenInvariant(*joined), "");
            }
            EXPECT_EQ(ownedBlocks(), 0u);
            EXPECT_EQ(linxtest::brokenInvariant(*joined), "");
            if (!failed || HasFailure()) return n - 1;
        }
    }

    /// The numbers of all signals that can be received without waiting, added up.
    static uint32_t sumOfAll(LINX* linx) {
        uint32_t sum = 0;
        while (const uint32_t number = receiveNumber(linx)) sum += number;
        return sum;
    }
};

constexpr auto arrangeNothing = [](auto&) {};

TEST_F(ExhaustionTest, WhatWasSentToAnEarlierUserOfTheSlotIsStillThrownAway) {
    KnownEndpoint receiver("receiver");
    KnownEndpoint sender("sender");
    sendNumber(sender, receiver.spid, 1);
    // As one who was held up since before the slot changed hands.
    const Spid earlier = makeSpid(indexOf(receiver.spid), generationOf(receiver.spid) - 1);
    LinxSignal* signal = linx_alloc(sender, 4, 2);
    Block& stray = *blockOf(signal);
    stray.owner.storeRelease(inFlightTo(earlier));
    linxtest::deliver(slotOf(receiver.spid), arena.blockAt(refOf(signal)));

    newThatFails = 1;
    ASSERT_EQ(linx_receive_w_tmo(receiver, &signal, 0, anySignal), -1);
    EXPECT_EQ(errno, ENOMEM);
    ASSERT_EQ(newThatFails, 0u);
    EXPECT_EQ(receiveNumber(receiver), 1u);
    EXPECT_EQ(receiveNumber(receiver), 0u);
    EXPECT_EQ(dropped(receiver.spid), 1u);
}

TEST_F(ExhaustionTest, AnEndpointIsOpenedOrNothingIsLeftOfIt) {
    const auto hunt = [](Scene& scene) { ASSERT_EQ(linx_hunt(scene.one, "opened", nullptr), 0); };
    LINX* opened = nullptr;
    const auto open = [&](Scene&) { return answerOf((opened = linx_open("opened", 0, nullptr)) != nullptr); };
    const auto check = [&](Scene& scene, Answer answer) {
        EXPECT_EQ(domain.leftovers().size(), answer.ok ? 3u : 2u);
        if (!answer.ok) opened = linx_open("opened", 0, nullptr);
        EXPECT_EQ(receiveNumber(scene.one), static_cast<uint32_t>(LINX_OS_HUNT_SIG));
        EXPECT_EQ(receiveNumber(scene.one), 0u);
        EXPECT_EQ(linx_close(opened), 0);
    };
    EXPECT_GT(failEachNew(hunt, open, check), 0u);
}

TEST_F(ExhaustionTest, ADomainIsJoinedOrNothingIsLeftOfIt) {
    for (unsigned n = 1;; ++n) {
        const linxtest::TestDomain other;
        const size_t before = linxtest::TestDomain::openFileCount();
        newThatFails = n;
        LINX* linx = linx_open("first", 0, nullptr);
        const bool failed = newThatFails == 0;
        newThatFails = 0;
        if (linx == nullptr) {
            EXPECT_EQ(errno, ENOMEM);
            EXPECT_EQ(other.leftovers(), std::vector<std::string>());
        } else {
            EXPECT_EQ(linx_close(linx), 0);
        }
        EXPECT_EQ(linxtest::TestDomain::openFileCount(), before);
        if (!failed) break;
    }
}

TEST_F(ExhaustionTest, ClosingAlwaysWorks) {
    const auto leaveSomeOfEverything = [](Scene& scene) {
        LinxSignal* signal = nullptr;
        const uint32_t second[] = {1, 2};
        for (uint32_t number = 1; number <= 3; ++number) sendNumber(scene.one, scene.two.spid, number);
        ASSERT_EQ(linx_receive_w_tmo(scene.two, &signal, 0, second), 4);  // the others are in its queue now
        for (int i = 0; i < 20; ++i) sendNumber(scene.one, scene.two.spid, 4);
        ASSERT_EQ(linx_hunt(scene.two, "absent", nullptr), 0);
        ASSERT_NE(linx_request_tmo(scene.two, 1000000, nullptr), 0u);
        ASSERT_NE(linx_request_tmo(scene.two, 0, nullptr), 0u);
        signal = linx_alloc(scene.two, 4, 5);
        ASSERT_NE(linx_attach(scene.two, &signal, scene.one.spid), 0u);
    };
    const auto close = [](Scene& scene) { return answerOf(linx_close(scene.two.release()) == 0); };
    const auto check = [this](Scene& scene, Answer answer) {
        EXPECT_TRUE(answer.ok);
        EXPECT_FALSE(isOpen(arena, scene.two.spid));
        LinxSignal* signal = linx_alloc(scene.one, 4, 1);
        EXPECT_EQ(linx_send(scene.one, &signal, scene.two.spid), -1);
        EXPECT_EQ(errno, ECONNRESET);
    };
    EXPECT_GT(failEachNew(leaveSomeOfEverything, close, check), 0u);
}

TEST_F(ExhaustionTest, AllocatingNeedsNoPrivateMemory) {
    LinxSignal* signal = nullptr;
    const auto allocate = [&](Scene& scene) { return answerOf((signal = linx_alloc(scene.two, 100, 1)) != nullptr); };
    const auto check = [&](Scene& scene, Answer answer) {
        EXPECT_TRUE(answer.ok);
        EXPECT_EQ(linx_free_buf(scene.two, &signal), 0);
    };
    EXPECT_EQ(failEachNew(arrangeNothing, allocate, check), 0u);
}

/// Signals of one that two has got, all of a size that one has no other blocks of.
std::vector<LinxSignal*> passMany(LINX* one, LINX* two, LinxSpid to) {
    std::vector<LinxSignal*> passed(200);
    for (LinxSignal*& signal : passed) {
        signal = linx_alloc(one, 400, 1);
        linx_send(one, &signal, to);
        linx_receive_w_tmo(two, &signal, 0, anySignal);
    }
    return passed;
}

TEST_F(ExhaustionTest, FetchingWhatOthersGaveBackNeedsNoPrivateMemory) {
    uint32_t lines = 0;
    const auto giveBack = [&](Scene& scene) {
        std::vector<LinxSignal*> passed = passMany(scene.one, scene.two, scene.two.spid);
        lines = leasedLines(scene.one.spid);
        for (LinxSignal*& signal : passed) ASSERT_EQ(linx_free_buf(scene.two, &signal), 0);
    };
    std::vector<LinxSignal*> again(200);
    const auto allocate = [&](Scene& scene) {
        const unsigned failing = newThatFails;
        newThatFails = 0;  // what it has in its lists comes first
        size_t count = 0;
        while (slotOf(scene.one.spid).returned.loadRelaxed() != stack::headOf(stack::empty)) {
            newThatFails = failing;
            again[count] = linx_alloc(scene.one, 400, 1);
            if (again[count++] == nullptr) return answerOf(false);
        }
        again.resize(count);
        return answerOf(true);
    };
    const auto check = [&](Scene& scene, Answer answer) {
        EXPECT_TRUE(answer.ok);
        while (again.size() < 200) again.push_back(linx_alloc(scene.one, 400, 1));
        EXPECT_EQ(leasedLines(scene.one.spid), lines);
        for (LinxSignal*& signal : again) EXPECT_EQ(linx_free_buf(scene.one, &signal), 0);
    };
    EXPECT_EQ(failEachNew(giveBack, allocate, check), 0u);
}

TEST_F(ExhaustionTest, FreeingNeedsNoPrivateMemory) {
    std::vector<LinxSignal*> held;
    const auto outliveTheHome = [&](Scene& scene) {
        held = passMany(scene.one, scene.two, scene.two.spid);
        scene.one.close();
    };
    const auto freeAll = [&](Scene& scene) {
        const unsigned failing = newThatFails;
        bool ok = true;
        for (LinxSignal*& signal : held) {
            newThatFails = failing;  // for every one of them
            ok = linx_free_buf(scene.two, &signal) == 0 && signal == nullptr && ok;
        }
        return answerOf(ok);
    };
    const auto check = [&](Scene& scene, Answer answer) {
        EXPECT_TRUE(answer.ok);
        const uint32_t lines = leasedLines(scene.two.spid);
        for (LinxSignal*& signal : held) EXPECT_NE(signal = linx_alloc(scene.two, 400, 1), nullptr);
        EXPECT_EQ(leasedLines(scene.two.spid), lines);
        for (LinxSignal*& signal : held) EXPECT_EQ(linx_free_buf(scene.two, &signal), 0);
    };
    EXPECT_EQ(failEachNew(outliveTheHome, freeAll, check), 0u);
}

TEST_F(ExhaustionTest, ASignalToAStrangerIsSentOrFreed) {
    LinxSignal* signal = nullptr;
    const auto allocate = [&](Scene& scene) { signal = linx_alloc(scene.one, 4, 7); };
    const auto send = [&](Scene& scene) { return answerOf(linx_send(scene.one, &signal, scene.two.spid) == 0); };
    const auto check = [&](Scene& scene, Answer answer) {
        EXPECT_EQ(signal, nullptr);
        EXPECT_EQ(sumOfAll(scene.two), answer.ok ? 7u : 0u);
        sendNumber(scene.one, scene.two.spid, 8);
        EXPECT_EQ(sumOfAll(scene.two), 8u);
    };
    EXPECT_GT(failEachNew(allocate, send, check), 0u);
}

TEST_F(ExhaustionTest, ASignalToOneselfIsSentOrFreedAndNoOtherIsLost) {
    LinxSignal* signal = nullptr;
    const auto sendBefore = [&](Scene& scene) {
        for (int i = 0; i < 20; ++i) sendNumber(scene.one, scene.two.spid, 100);
        signal = linx_alloc(scene.two, 4, 7);
    };
    const auto send = [&](Scene& scene) { return answerOf(linx_send(scene.two, &signal, scene.two.spid) == 0); };
    const auto check = [&](Scene& scene, Answer answer) {
        EXPECT_EQ(signal, nullptr);
        EXPECT_EQ(sumOfAll(scene.two), answer.ok ? 2007u : 2000u);
    };
    EXPECT_GT(failEachNew(sendBefore, send, check), 0u);
}

TEST_F(ExhaustionTest, AHuntIsAnsweredOrItsSignalFreed) {
    for (const char* name : {"one", "two", "absent"}) {
        LinxSignal* signal = nullptr;
        const auto sendBefore = [&](Scene& scene) {
            sendNumber(scene.two, scene.one.spid, 100);
            signal = linx_alloc(scene.one, 4, 7);
        };
        const auto hunt = [&](Scene& scene) { return answerOf(linx_hunt(scene.one, name, &signal) == 0); };
        const auto check = [&](Scene& scene, Answer answer) {
            EXPECT_EQ(signal, nullptr);
            const KnownEndpoint absent("absent");
            EXPECT_EQ(sumOfAll(scene.one), answer.ok ? 107u : 100u);
        };
        EXPECT_GT(failEachNew(sendBefore, hunt, check), 0u) << name;
        const auto huntByDefault = [&](Scene& scene) { return answerOf(linx_hunt(scene.one, name, nullptr) == 0); };
        const auto checkDefault = [&](Scene& scene, Answer answer) {
            const KnownEndpoint absent("absent");
            EXPECT_EQ(sumOfAll(scene.one), answer.ok ? static_cast<uint32_t>(LINX_OS_HUNT_SIG) : 0u);
        };
        const bool mayWantMemory = name != std::string("absent");
        EXPECT_EQ(failEachNew(arrangeNothing, huntByDefault, checkDefault) != 0, mayWantMemory) << name;
    }
}

TEST_F(ExhaustionTest, ANoticeIsKeptOrFreed) {
    LinxSignal* notice = nullptr;
    const auto allocate = [&](Scene& scene) { notice = linx_alloc(scene.one, 4, 7); };
    const auto attach = [&](Scene& scene) { return answerOf(linx_attach(scene.one, &notice, scene.two.spid) != 0); };
    const auto check = [&](Scene& scene, Answer answer) {
        EXPECT_EQ(notice, nullptr);
        scene.two.close();
        EXPECT_EQ(sumOfAll(scene.one), answer.ok ? 7u : 0u);
    };
    EXPECT_GT(failEachNew(allocate, attach, check), 0u);
}

TEST_F(ExhaustionTest, ANoticeOfTheEndedIsDeliveredOrFreed) {
    LinxSignal* notice = nullptr;
    const auto endFirst = [&](Scene& scene) {
        sendNumber(scene.two, scene.one.spid, 100);
        scene.two.close();
        notice = linx_alloc(scene.one, 4, 7);
    };
    const auto attach = [&](Scene& scene) { return answerOf(linx_attach(scene.one, &notice, scene.two.spid) != 0); };
    const auto check = [&](Scene& scene, Answer answer) {
        EXPECT_EQ(notice, nullptr);
        EXPECT_EQ(sumOfAll(scene.one), answer.ok ? 107u : 100u);
    };
    EXPECT_GT(failEachNew(endFirst, attach, check), 0u);
}

TEST_F(ExhaustionTest, ATimeoutIsKeptOrFreed) {
    LinxSignal* signal = nullptr;
    const auto allocate = [&](Scene& scene) { signal = linx_alloc(scene.one, 4, 7); };
    const auto request = [&](Scene& scene) { return answerOf(linx_request_tmo(scene.one, 0, &signal) != 0); };
    const auto check = [&](Scene& scene, Answer answer) {
        EXPECT_EQ(signal, nullptr);
        EXPECT_EQ(sumOfAll(scene.one), answer.ok ? 7u : 0u);
    };
    EXPECT_GT(failEachNew(allocate, request, check), 0u);
}

/// The kernel bounds what one user may watch.
TEST_F(ExhaustionTest, ATimeoutThatCouldNotBeWatchedDoesNotKeepTheNextFromIt) {
    KnownEndpoint endpoint("endpoint");
    LinxSignal* signal = linx_alloc(endpoint, 4, 7);
    linxtest::interposed::atWatch = [] { return ENOSPC; };
    EXPECT_EQ(linx_request_tmo(endpoint, 0, &signal), 0u);
    EXPECT_EQ(errno, ENFILE);
    EXPECT_EQ(signal, nullptr);
    linxtest::interposed::reset();
    ASSERT_NE(linx_request_tmo(endpoint, 1, nullptr), 0u);
    LinxSignal* timeout = nullptr;
    ASSERT_EQ(linx_receive_w_tmo(endpoint, &timeout, 20000, anySignal), 4);
    linx_free_buf(endpoint, &timeout);
    ASSERT_NE(linx_request_tmo(endpoint, 1, nullptr), 0u);
    EXPECT_TRUE(endpoint.awaitReadable());
    EXPECT_EQ(receiveNumber(endpoint), static_cast<uint32_t>(LINX_OS_TIMEOUT_SIG));
}

TEST_F(ExhaustionTest, TakingATimeoutBackAlwaysWorks) {
    LinxRef reference = 0;
    const auto letItFire = [&](Scene& scene) {
        LinxSignal* none = nullptr;
        const uint32_t another[] = {1, 12345};
        ASSERT_NE(reference = linx_request_tmo(scene.one, 0, nullptr), 0u);
        ASSERT_EQ(linx_receive_w_tmo(scene.one, &none, 0, another), 0);
        // Taking it back empties the queue, so that the mailbox is looked into.
        for (int i = 0; i < 20; ++i) sendNumber(scene.two, scene.one.spid, 100);
    };
    const auto cancel = [&](Scene& scene) { return answerOf(linx_cancel_tmo(scene.one, &reference) == 0); };
    const auto check = [&](Scene& scene, Answer answer) {
        EXPECT_TRUE(answer.ok);
        EXPECT_EQ(sumOfAll(scene.one), 2000u);
    };
    EXPECT_GT(failEachNew(letItFire, cancel, check), 0u);
}

TEST_F(ExhaustionTest, WhatCannotBeReceivedNowIsReceivedLater) {
    const uint32_t last[] = {1, 500};
    LinxSignal* signal = nullptr;
    const auto sendAndLetThingsHappen = [&](Scene& scene) {
        for (int i = 0; i < 20; ++i) sendNumber(scene.one, scene.two.spid, 100);
        LinxSignal* notice = linx_alloc(scene.two, 4, 7);
        ASSERT_NE(linx_attach(scene.two, &notice, scene.one.spid), 0u);
        ASSERT_NE(linx_request_tmo(scene.two, 0, nullptr), 0u);
        sendNumber(scene.one, scene.two.spid, 500);
        scene.one.close();
    };
    const auto receive = [&](Scene& scene) { return answerOf(linx_receive_w_tmo(scene.two, &signal, 0, last) >= 0); };
    const auto check = [&](Scene& scene, Answer answer) {
        EXPECT_EQ(signal != nullptr, answer.ok);
        EXPECT_TRUE(signal == nullptr || linx_free_buf(scene.two, &signal) == 0);
        EXPECT_TRUE(scene.two.readable());
        EXPECT_EQ(sumOfAll(scene.two), 2007u + LINX_OS_TIMEOUT_SIG + (answer.ok ? 0u : 500u));
        EXPECT_FALSE(scene.two.readable());
        scene.two.close();
    };
    EXPECT_GT(failEachNew(sendAndLetThingsHappen, receive, check), 0u);
}

TEST_F(ExhaustionTest, WhatCouldNotBeReceivedComesBeforeWhatHasComeSince) {
    Scene scene;
    LinxSignal* notice = linx_alloc(scene.one, 4, 9999);
    ASSERT_NE(linx_attach(scene.one, &notice, scene.two.spid), 0u);
    for (uint32_t number = 1; number <= 100; ++number) sendNumber(scene.two, scene.one.spid, number);
    LinxSignal* signal = nullptr;
    newThatFails = 1;
    EXPECT_EQ(linx_receive_w_tmo(scene.one, &signal, 0, anySignal), -1);
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_EQ(newThatFails, 0u);
    sendNumber(scene.two, scene.one.spid, 101);
    scene.two.close();
    const uint64_t tick = coarseMilliseconds();
    while (coarseMilliseconds() == tick) {
    }  // ends are looked for once a tick
    for (uint32_t number = 1; number <= 101; ++number) EXPECT_EQ(receiveNumber(scene.one), number);
    EXPECT_EQ(receiveNumber(scene.one), 9999u);
}

/// The one descriptor that is left goes to the peer sent to, and then to the sender of an introduction.
TEST_F(ExhaustionTest, APeerIsSentToBeforeItHasToMakeRoomForAnother) {
    Scene scene;
    const KnownEndpoint stranger("stranger");
    auto ended = std::make_unique<KnownEndpoint>("ended");
    for (uint32_t i = 0; i < 50; ++i) {
        LinxSignal* notice = linx_alloc(scene.one, 4, 9000 + i);
        ASSERT_NE(linx_attach(scene.one, &notice, ended->spid), 0u);
    }
    LinxSignal* signal = linx_alloc(scene.one, 4, 1);
    ended.reset();
    LinxSignal* received = nullptr;
    newThatFails = 1;
    EXPECT_EQ(linx_receive_w_tmo(scene.one, &received, 0, anySignal), -1);
    EXPECT_EQ(errno, ENOMEM);
    newThatFails = 0;
    doorbell::tell(ScopedDescriptor(doorbell::open(joined->directory(), scene.one.spid)).get(), stranger.spid);
    {
        const FewDescriptors one(1);
        EXPECT_EQ(linx_send(scene.one, &signal, scene.two.spid), 0);
        EXPECT_EQ(signal, nullptr);
    }
    sendNumber(scene.one, scene.two.spid, 2);
    EXPECT_EQ(receiveNumber(scene.two), 1u);
    EXPECT_EQ(receiveNumber(scene.two), 2u);
    for (uint32_t i = 0; i < 50; ++i) EXPECT_EQ(receiveNumber(scene.one), 9000 + i);
}

TEST_F(ExhaustionTest, ANameIsGivenOrNot) {
    char* name = nullptr;
    const auto ask = [&](Scene& scene) { return answerOf(linx_get_name(scene.one, scene.two.spid, &name) == 0); };
    const auto check = [&](Scene& scene, Answer answer) {
        if (answer.ok) {
            EXPECT_STREQ(name, "two");
            EXPECT_EQ(linx_free_name(scene.one, &name), 0);
        }
        EXPECT_EQ(name, nullptr);
    };
    EXPECT_GT(failEachNew(arrangeNothing, ask, check), 0u);
}

}  // namespace
}  // namespace linx
