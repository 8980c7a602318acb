// Memory that endpoints keep though they have no use for it: whoever finds none gets it.

#include <chrono>

#include "tests/kit/child.h"
#include "tests/kit/domain_test.h"
#include "tests/kit/signals.h"

namespace {

constexpr uint32_t item = 100;
constexpr uint32_t last = 101;
constexpr uint32_t bytes = 4000;
constexpr uint32_t burst = 15;  ///< as much as an endpoint keeps where there are few

/// The smallest arena, of which an endpoint may have half.
class Hoarding : public ProcessTest {
    const linxtest::ScopedVariable size_{"LINX_ARENA_MB", "4"};
};

/// All that an endpoint can get, freed with its scope.
class Hoard {
public:
    explicit Hoard(LINX* linx) : linx_(linx) { grow(); }
    ~Hoard() {
        for (LinxSignal* signal : signals_) linx_free_buf(linx_, &signal);
    }
    Hoard(const Hoard&) = delete;
    Hoard& operator=(const Hoard&) = delete;

    void grow() {
        while (LinxSignal* signal = linx_alloc(linx_, bytes, item)) signals_.push_back(signal);
    }
    size_t size() const { return signals_.size(); }

private:
    LINX* const linx_;
    std::vector<LinxSignal*> signals_;
};

void sendBurst(LINX* linx, LinxSpid to) {
    for (uint32_t i = 1; i <= burst; ++i) {
        LinxSignal* signal = linx_alloc(linx, bytes, i == burst ? last : item);
        ASSERT_NE(signal, nullptr);
        ASSERT_EQ(linx_send(linx, &signal, to), 0);
    }
}

/// Takes signals up to the last one, and does with each what it is told to.
template <class Handle>
void takeBurst(LINX* linx, Handle handle) {
    uint32_t number = 0;
    while (number != last) {
        LinxSignal* signal = nullptr;
        ASSERT_LT(0, linx_receive_w_tmo(linx, &signal, patience, anySignal));
        number = signal->number;
        handle(signal);
    }
}

void sendBackBurst(LINX* linx) {
    takeBurst(linx, [&](LinxSignal* signal) { EXPECT_EQ(linx_send(linx, &signal, linx_sender(linx, &signal)), 0); });
}
void freeBurst(LINX* linx) {
    takeBurst(linx, [&](LinxSignal* signal) { EXPECT_EQ(linx_free_buf(linx, &signal), 0); });
}

void sleep(Endpoint& endpoint) {
    receive(endpoint, ~0u, {item});
}
void poll(Endpoint& endpoint) {
    while (endpoint.awaitReadable()) receive(endpoint, 0);
}

/// Has signals sent to "mirror", gets them back, frees them, and has nothing to do from then on.
template <class Idle>
Child::Body hoarder(Idle idle) {
    return [idle](Line& parent) {
        Endpoint endpoint("hoarder" + std::to_string(getpid()));
        sendBurst(endpoint, hunt(endpoint, "mirror"));
        parent.tell();
        freeBurst(endpoint);
        parent.tell();
        idle(endpoint);
    };
}

using Crowd = std::vector<std::unique_ptr<Child>>;

template <class Idle>
void addHoarders(uint32_t count, LINX* mirror, Idle idle, Crowd& hoarders) {
    for (uint32_t i = 0; i < count; ++i) {
        hoarders.push_back(std::make_unique<Child>(hoarder(idle)));
        hoarders.back()->hear();
        sendBackBurst(mirror);
        hoarders.back()->hear();
        hoarders.back()->awaitSleep();
    }
}

/// Waits until two endpoints together have got so many signals. Each may have half of what there is.
void expectToHold(size_t count) {
    Endpoint one("one");
    Endpoint two("two");
    Hoard ofOne(one);
    Hoard ofTwo(two);
    EXPECT_TRUE(comesTrue([&] {
        ofOne.grow();
        ofTwo.grow();
        return ofOne.size() + ofTwo.size() >= count;
    })) << ofOne.size()
        << " and " << ofTwo.size();
}

TEST_F(Hoarding, ManyWhoHaveTalkedAndFallenIdleLeaveRoomForANewcomer) {
    Endpoint mirror("mirror");
    Crowd hoarders;
    addHoarders(70, mirror, sleep, hoarders);
    Endpoint newcomer("newcomer");
    const Hoard hoard(newcomer);
    EXPECT_GT(hoard.size(), 400u);
}

TEST_F(Hoarding, WhatIdleEndpointsKeepIsHadByWhoFindsNothingElse) {
    Endpoint mirror("mirror");
    Crowd hoarders;
    addHoarders(6, mirror, sleep, hoarders);
    addHoarders(6, mirror, poll, hoarders);
    expectToHold(860);  // there is room for 896, and each keeps a few small ones so that it can go on to talk
}

TEST_F(Hoarding, WhatIsGivenBackToThoseWhoDoNotComeForItLeavesRoomForANewcomer) {
    Endpoint reader("reader");
    std::vector<std::unique_ptr<Endpoint>> busy;
    for (int i = 0; i < 70; ++i) {
        busy.push_back(std::make_unique<Endpoint>("busy" + std::to_string(i)));
        sendBurst(*busy.back(), spidOf(reader));
        freeBurst(reader);
    }
    Endpoint newcomer("newcomer");
    const Hoard hoard(newcomer);
    EXPECT_GT(hoard.size(), 100u);
}

}  // namespace
