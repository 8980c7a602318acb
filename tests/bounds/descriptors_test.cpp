// Descriptors that run out in every operation that needs some: it says EMFILE, frees its signal, loses nothing else,
// and works once there are descriptors again.

#include <cerrno>
#include <cstring>

#include "tests/processes/support/child.h"
#include "tests/processes/support/process_test.h"
#include "tests/processes/support/signals.h"
#include "tests/support/few_descriptors.h"

namespace {

constexpr uint32_t item = 100;
constexpr uint32_t notice = 101;

class NoDescriptors : public ProcessTest {
protected:
    void SetUp() override {
#if defined(__SANITIZE_ADDRESS__)
        GTEST_SKIP()
            << "the undefined-behaviour sanitizer opens a pipe to look at an object's type, and reports where "
               "it cannot";
#endif
    }

    /// Tries with no descriptor left, then with one, and so on until it works. `attempt()` returns 0 or an errno
    /// value. Returns how many it takes.
    template <class Attempt>
    static unsigned descriptorsFor(Attempt attempt) {
        for (unsigned count = 0;; ++count) {
            int result;
            {
                const FewDescriptors few(count);
                result = attempt();
            }
            if (result == 0) return count;
            EXPECT_EQ(EMFILE, result) << "with " << count << " descriptors";
            if (result != EMFILE) return 0;
        }
    }

    static int resultOf(bool ok) {
        return ok ? 0 : errno;
    }

    /// The same for an operation that takes a signal, which must be gone each time. `operation(signal)` tells whether
    /// it worked.
    template <class Operation>
    static unsigned descriptorsForSignal(LINX* linx, uint32_t number, Operation operation) {
        return descriptorsFor([&] {
            LinxSignal* signal = allocate(linx, number);
            const int result = resultOf(operation(&signal));
            EXPECT_EQ(nullptr, signal);
            return result;
        });
    }

    static int open(const char* name) {
        LINX* linx = linx_open(name, 0, nullptr);
        if (linx == nullptr) return errno;
        return resultOf(linx_close(linx) == 0);
    }

    /// Has an endpoint lease memory for small signals, which takes a descriptor once.
    static void getMemory(LINX* linx) {
        spidOf(linx);
    }
    static LinxSignal* allocate(LINX* linx, uint32_t number) {
        LinxSignal* signal = linx_alloc(linx, sizeof(LinxSignal), number);
        EXPECT_NE(nullptr, signal);
        return signal;
    }
};

TEST_F(NoDescriptors, AnEndpointIsOpenedOrNothingIsLeftOfIt) {
    EXPECT_EQ(0, open("makes the domain"));
    EXPECT_GT(descriptorsFor([] { return open("endpoint"); }), 2u);
    EXPECT_EQ(std::vector<std::string>(), domain.leftovers());
}

TEST_F(NoDescriptors, ATakenNameIsNotToldFromAFreeOne) {
    const Endpoint holder("name");
    int result;
    unsigned count = 0;
    do {
        const FewDescriptors few(count++);
        result = open("name");
    } while (result == EMFILE);
    EXPECT_EQ(EADDRINUSE, result);
    EXPECT_GT(count, 2u);
}

TEST_F(NoDescriptors, TheNameOfTheDeadCanBeTakenOnceThereAreSome) {
    Child child([](Line& parent) {
        const Endpoint endpoint("name");
        parent.tell();
        parent.hear();
    });
    child.hear();
    child.kill9();
    EXPECT_GT(descriptorsFor([] { return open("name"); }), 2u);
}

TEST_F(NoDescriptors, WhoHuntsForANameIsAnsweredOrItIsNotOpened) {
    const auto hunter = [](Line& parent) {
        Endpoint endpoint("hunter" + std::to_string(getpid()));
        ASSERT_EQ(0, linx_hunt(endpoint, "late", nullptr));
        parent.tell();
        const LinxSpid found = expectSignal(endpoint, LINX_OS_HUNT_SIG).sender;
        EXPECT_EQ("late", nameOf(endpoint, found));
        expectNothing(endpoint);
        parent.tell(found);
    };
    Child one(hunter);
    Child other(hunter);
    one.hear();
    other.hear();
    one.awaitSleep();  // and are woken by being answered, or not at all
    other.awaitSleep();
    LINX* late = nullptr;
    descriptorsFor([&] { return resultOf((late = linx_open("late", 0, nullptr)) != nullptr); });
    EXPECT_EQ(spidOf(late), one.hear());
    EXPECT_EQ(spidOf(late), other.hear());
    EXPECT_EQ(0, linx_close(late));
    EXPECT_EQ(0, one.exitStatus());
    EXPECT_EQ(0, other.exitStatus());
}

TEST_F(NoDescriptors, AHuntForALiveNameIsAnsweredOnceThereIsOne) {
    Endpoint endpoint("endpoint");
    getMemory(endpoint);
    const Endpoint sought("sought");
    const unsigned count = descriptorsForSignal(
        endpoint, item, [&](LinxSignal** signal) { return linx_hunt(endpoint, "sought", signal) == 0; });
    EXPECT_GT(count, 0u);
    EXPECT_EQ(spidOf(sought), expectSignal(endpoint, item, 0).sender);
    expectNothing(endpoint);
}

TEST_F(NoDescriptors, AHuntForAnAbsentNameNeedsNone) {
    Endpoint endpoint("endpoint");
    getMemory(endpoint);
    const unsigned count = descriptorsForSignal(
        endpoint, item, [&](LinxSignal** signal) { return linx_hunt(endpoint, "absent", signal) == 0; });
    EXPECT_EQ(count, 0u);
    const Endpoint absent("absent");
    EXPECT_EQ(spidOf(absent), expectSignal(endpoint, item, 0).sender);
    expectNothing(endpoint);
}

TEST_F(NoDescriptors, AFirstSendIsRefusedUntilThereIsOne) {
    Endpoint endpoint("endpoint");
    Endpoint peer("peer");
    const LinxSpid to = spidOf(peer);
    getMemory(endpoint);
    EXPECT_GT(descriptorsFor([&] { return send(endpoint, to, item); }), 0u);
    expectSignal(peer, item, 0);
    expectNothing(peer);
}

TEST_F(NoDescriptors, ASupervisionIsRefusedUntilThereIsOne) {
    Endpoint endpoint("endpoint");
    getMemory(endpoint);
    {
        const Endpoint peer("peer");
        const LinxSpid to = spidOf(peer);
        const unsigned count = descriptorsForSignal(
            endpoint, notice, [&](LinxSignal** signal) { return linx_attach(endpoint, signal, to) != 0; });
        EXPECT_GT(count, 0u);
    }
    expectSignal(endpoint, notice, 0);
    expectNothing(endpoint);
}

TEST_F(NoDescriptors, ATimeOutIsRefusedUntilThereIsOne) {
    Endpoint endpoint("endpoint");
    getMemory(endpoint);
    const unsigned count = descriptorsForSignal(
        endpoint, item, [&](LinxSignal** signal) { return linx_request_tmo(endpoint, 0, signal) != 0; });
    EXPECT_GT(count, 0u);
    expectSignal(endpoint, item);
    expectNothing(endpoint);
}

TEST_F(NoDescriptors, MemoryIsGivenWithoutAny) {
    Endpoint endpoint("endpoint");
    LinxSignal* signal = nullptr;
    const FewDescriptors none(0);
    EXPECT_NE(nullptr, signal = linx_alloc(endpoint, 100000, item));
    EXPECT_EQ(0, linx_free_buf(endpoint, &signal));
}

TEST_F(NoDescriptors, StrangersAreHeardAllTheSame) {
    Endpoint endpoint("endpoint");
    Child child([](Line& parent) {
        Endpoint stranger("stranger");
        const LinxSpid to = hunt(stranger, "endpoint");
        for (uint32_t i = 0; i < 100; ++i) ASSERT_EQ(0, send(stranger, to, item, {i}));
        EXPECT_EQ(7u, expectSignal(stranger, item).word());
        parent.tell(spidOf(stranger));
        parent.hear();
    });
    LinxSpid sender = 0;
    {
        const FewDescriptors none(0);
        for (uint32_t i = 0; i < 100; ++i) {
            const Received received = expectSignal(endpoint, item);
            EXPECT_EQ(i, received.word());
            sender = received.sender;
        }
        EXPECT_EQ(EMFILE, send(endpoint, sender, item, {6}));
    }
    EXPECT_EQ(0, send(endpoint, sender, item, {7}));
    EXPECT_EQ(sender, child.hear());
    child.tell();
    EXPECT_EQ(0, child.exitStatus());
}

TEST_F(NoDescriptors, PeersMakeRoomForEachOther) {
    constexpr uint32_t count = 20;
    constexpr uint32_t rounds = 5;
    Child child([](Line& parent) {
        std::vector<std::unique_ptr<Endpoint>> peers;
        for (uint32_t i = 0; i < count; ++i) peers.push_back(std::make_unique<Endpoint>("peer" + std::to_string(i)));
        parent.tell();
        for (uint32_t round = 0; round < rounds; ++round) {
            for (const auto& peer : peers) EXPECT_EQ(round, expectSignal(*peer, item).word());
        }
        for (const auto& peer : peers) expectNothing(*peer);
    });
    child.hear();
    Endpoint endpoint("endpoint");
    LinxSpid peers[count];
    for (uint32_t i = 0; i < count; ++i) {
        Endpoint seeker("seeker");
        peers[i] = hunt(seeker, "peer" + std::to_string(i));
    }
    getMemory(endpoint);
    {
        const FewDescriptors few(2);
        for (uint32_t round = 0; round < rounds; ++round) {
            for (const LinxSpid peer : peers) ASSERT_EQ(0, send(endpoint, peer, item, {round}));
        }
    }
    EXPECT_EQ(0, child.exitStatus());
}

TEST_F(NoDescriptors, APeerMakesRoomForWhateverNeedsOne) {
    Endpoint endpoint("endpoint");
    Endpoint peer("peer");
    const auto expectRoom = [&](auto operation) {
        ASSERT_EQ(0, send(endpoint, spidOf(peer), item));  // the doorbell of the peer is open from now on
        expectSignal(peer, item, 0);
        const FewDescriptors none(0);
        EXPECT_TRUE(operation()) << std::strerror(errno);
    };
    expectRoom([&] {
        LinxSignal* signal = linx_alloc(endpoint, 100000, item);
        return signal != nullptr && linx_free_buf(endpoint, &signal) == 0;
    });
    expectRoom([&] { return linx_hunt(endpoint, "absent", nullptr) == 0; });
    expectRoom([&] { return linx_request_tmo(endpoint, 0, nullptr) != 0; });
    expectSignal(endpoint, LINX_OS_TIMEOUT_SIG);
}

TEST_F(NoDescriptors, ClosingWorksWithoutAny) {
    Endpoint supervisor("supervisor");
    for (const bool polled : {false, true}) {
        LINX* endpoint = linx_open("endpoint", 0, nullptr);
        ASSERT_NE(0u, attach(supervisor, spidOf(endpoint), notice));
        const int descriptor = polled ? linx_get_descriptor(endpoint) : -1;
        {
            const FewDescriptors none(0);
            EXPECT_EQ(0, linx_close(endpoint));
            if (polled) {
                EXPECT_EQ(0, close(descriptor));
            }
        }
        expectSignal(supervisor, notice, 0);
        EXPECT_EQ(0, open("endpoint"));
    }
}

}  // namespace
