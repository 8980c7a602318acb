// Descriptors that run out in every operation that needs some: it says EMFILE, frees its signal, loses nothing else,
// and works once there are descriptors again.

#include <cerrno>
#include <cstring>

#include "tests/kit/child.h"
#include "tests/kit/domain_test.h"
#include "tests/kit/few_descriptors.h"
#include "tests/kit/signals.h"

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
            EXPECT_EQ(result, EMFILE) << "with " << count << " descriptors";
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
            EXPECT_EQ(signal, nullptr);
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
        EXPECT_NE(signal, nullptr);
        return signal;
    }
};

TEST_F(NoDescriptors, AnEndpointIsOpenedOrNothingIsLeftOfIt) {
    EXPECT_EQ(open("makes the domain"), 0);
    EXPECT_GT(descriptorsFor([] { return open("endpoint"); }), 2u);
    EXPECT_EQ(domain.leftovers(), std::vector<std::string>());
}

TEST_F(NoDescriptors, ATakenNameIsNotToldFromAFreeOne) {
    const Endpoint holder("name");
    int result;
    unsigned count = 0;
    do {
        const FewDescriptors few(count++);
        result = open("name");
    } while (result == EMFILE);
    EXPECT_EQ(result, EADDRINUSE);
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
        ASSERT_EQ(linx_hunt(endpoint, "late", nullptr), 0);
        parent.tell();
        const LinxSpid found = expectSignal(endpoint, LINX_OS_HUNT_SIG).sender;
        EXPECT_EQ(nameOf(endpoint, found), "late");
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
    EXPECT_EQ(one.hear(), spidOf(late));
    EXPECT_EQ(other.hear(), spidOf(late));
    EXPECT_EQ(linx_close(late), 0);
    EXPECT_EQ(one.exitStatus(), 0);
    EXPECT_EQ(other.exitStatus(), 0);
}

TEST_F(NoDescriptors, AHuntForALiveNameIsAnsweredOnceThereIsOne) {
    Endpoint endpoint("endpoint");
    getMemory(endpoint);
    const Endpoint sought("sought");
    const unsigned count = descriptorsForSignal(
        endpoint, item, [&](LinxSignal** signal) { return linx_hunt(endpoint, "sought", signal) == 0; });
    EXPECT_GT(count, 0u);
    EXPECT_EQ(expectSignal(endpoint, item, 0).sender, spidOf(sought));
    expectNothing(endpoint);
}

TEST_F(NoDescriptors, AHuntForAnAbsentNameNeedsNone) {
    Endpoint endpoint("endpoint");
    getMemory(endpoint);
    const unsigned count = descriptorsForSignal(
        endpoint, item, [&](LinxSignal** signal) { return linx_hunt(endpoint, "absent", signal) == 0; });
    EXPECT_EQ(count, 0u);
    const Endpoint absent("absent");
    EXPECT_EQ(expectSignal(endpoint, item, 0).sender, spidOf(absent));
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
    EXPECT_NE(signal = linx_alloc(endpoint, 100000, item), nullptr);
    EXPECT_EQ(linx_free_buf(endpoint, &signal), 0);
}

TEST_F(NoDescriptors, StrangersAreHeardAllTheSame) {
    Endpoint endpoint("endpoint");
    Child child([](Line& parent) {
        Endpoint stranger("stranger");
        const LinxSpid to = hunt(stranger, "endpoint");
        for (uint32_t i = 0; i < 100; ++i) ASSERT_EQ(send(stranger, to, item, {i}), 0);
        EXPECT_EQ(expectSignal(stranger, item).word(), 7u);
        parent.tell(spidOf(stranger));
        parent.hear();
    });
    LinxSpid sender = 0;
    {
        const FewDescriptors none(0);
        for (uint32_t i = 0; i < 100; ++i) {
            const Received received = expectSignal(endpoint, item);
            EXPECT_EQ(received.word(), i);
            sender = received.sender;
        }
        EXPECT_EQ(send(endpoint, sender, item, {6}), EMFILE);
    }
    EXPECT_EQ(send(endpoint, sender, item, {7}), 0);
    EXPECT_EQ(child.hear(), sender);
    child.tell();
    EXPECT_EQ(child.exitStatus(), 0);
}

TEST_F(NoDescriptors, PeersMakeRoomForEachOther) {
    constexpr uint32_t count = 20;
    constexpr uint32_t rounds = 5;
    Child child([](Line& parent) {
        std::vector<std::unique_ptr<Endpoint>> peers;
        for (uint32_t i = 0; i < count; ++i) peers.push_back(std::make_unique<Endpoint>("peer" + std::to_string(i)));
        parent.tell();
        for (uint32_t round = 0; round < rounds; ++round) {
            for (const auto& peer : peers) EXPECT_EQ(expectSignal(*peer, item).word(), round);
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
            for (const LinxSpid peer : peers) ASSERT_EQ(send(endpoint, peer, item, {round}), 0);
        }
    }
    EXPECT_EQ(child.exitStatus(), 0);
}

TEST_F(NoDescriptors, APeerMakesRoomForWhateverNeedsOne) {
    Endpoint endpoint("endpoint");
    Endpoint peer("peer");
    const auto expectRoom = [&](auto operation) {
        ASSERT_EQ(send(endpoint, spidOf(peer), item), 0);  // the doorbell of the peer is open from now on
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
        ASSERT_NE(attach(supervisor, spidOf(endpoint), notice), 0u);
        const int descriptor = polled ? linx_get_descriptor(endpoint) : -1;
        {
            const FewDescriptors none(0);
            EXPECT_EQ(linx_close(endpoint), 0);
            if (polled) {
                EXPECT_EQ(close(descriptor), 0);
            }
        }
        expectSignal(supervisor, notice, 0);
        EXPECT_EQ(open("endpoint"), 0);
    }
}

}  // namespace
