#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>

#include "host/arena/domain.h"
#include "tests/scene/scene.h"

namespace scene {
namespace {

/// The victim may be gone by the time that it is answered.
bool isSentOrTooLate(int failure) {
    return failure == 0 || failure == ECONNRESET;
}

/// The first bystander's endpoint, and what it has seen.
class Conductor {
public:
    Conductor(Progress& progress) : progress_(progress), mirror_(::hunt(endpoint_, "mirror")) {
        exchange();  // it leases memory now and not while the victim may hold the lock
        LinxSignal* signal = linx_alloc(endpoint_, sizeof(LinxSignal), found);
        EXPECT_EQ(linx_hunt(endpoint_, victimName, &signal), 0);
        EXPECT_EQ(linx_hunt(endpoint_, behindVictim, nullptr), 0);
    }

    /// A burst to the second bystander and back.
    void exchange() {
        for (int i = 0; i < 8; ++i) ASSERT_EQ(send(endpoint_, mirror_, item, {sent_++}), 0);
        while (returned_ < sent_) ASSERT_TRUE(take()) << "lost after " << returned_;
        progress_.exchanged = returned_;
    }

    LinxSpid spid() const { return spidOf(endpoint_); }

    void awaitVictim() {
        while (founds_ == 0) ASSERT_TRUE(take()) << "the victim is not found";
        for (uint32_t i = 0; i < gifts; ++i) ASSERT_EQ(send(endpoint_, victim_, gift, {i}), 0);
    }

    void pause(Stance stance) {
        if (stance == Stance::away) {
            ASSERT_EQ(send(endpoint_, spidOf(endpoint_), gift), 0);
        }
        while (stance == Stance::working && !progress_.victimEnded) exchange();
        while (stance == Stance::asleep && notices_ == 0) ASSERT_TRUE(take()) << "nobody wakes the sleeper";
        while (stance == Stance::away && !progress_.victimActed && !progress_.victimEnded) sched_yield();
        while (!progress_.victimEnded && !testing::Test::HasFailure()) take(1);
    }

    /// The end of the victim, if there was one, is told; its name can be opened; the second bystander is there.
    void goOn() {
        while (notices_ < founds_) ASSERT_TRUE(take()) << "the victim's end is not told";
        exchange();
        const Endpoint hunted("nobody");  // whom the dead may still hunt for, while somebody clears up after them
        Endpoint("corpse").close();
        Endpoint successor(victimName);
        EXPECT_EQ(::hunt(successor, victimName), spidOf(successor));
        while (founds_ == 0) ASSERT_TRUE(take()) << "the hunt for the victim is forgotten";
        for (int i = 0; i < 4; ++i) exchange();
        successor.close();
        while (notices_ < attaches_) ASSERT_TRUE(take()) << "an end is not told";
    }

    void finish() {
        ASSERT_EQ(send(endpoint_, mirror_, end), 0);
        while (!ended_) ASSERT_TRUE(take()) << "the last signal is lost";
        while (take(0)) {
        }
        EXPECT_EQ(returned_, sent_);
        EXPECT_EQ(founds_, 1u);
        EXPECT_EQ(notices_, 1u);
    }

private:
    bool take(uint32_t milliseconds = patience) {
        const std::optional<Received> received = receive(endpoint_, milliseconds);
        if (received) handle(*received);
        return received.has_value();
    }

    void handle(const Received& received) {
        switch (received.number) {
            case item:
                EXPECT_EQ(received.sender, mirror_);
                EXPECT_EQ(received.word(), returned_++);
                break;
            case end:
                EXPECT_EQ(received.sender, mirror_);
                ended_ = true;
                break;
            case found:
                ++founds_;
                victim_ = received.sender;
                EXPECT_NE(attach(endpoint_, victim_, notice), 0u);
                ++attaches_;
                break;
            case notice:
                EXPECT_EQ(received.sender, victim_);
                progress_.notices = ++notices_;
                break;
            case parcel:
                if (received.sender == victim_) {
                    EXPECT_EQ(notices_, 0u) << "the end is told before the last signal";
                }
                EXPECT_TRUE(pattern(received.payload.size(), parcel) == received.payload);
                ++progress_.parcels;
                break;
            case wake:
                awaitSleep(received.sender, received.word());
                give(received.sender);
                break;
            case ask:
                give(received.sender);
                break;
            default:
                EXPECT_EQ(received.number, gift);
        }
    }

    void give(LinxSpid to) {
        for (uint32_t i = 0; i < gifts; ++i) EXPECT_TRUE(isSentOrTooLate(send(endpoint_, to, gift, {i})));
    }

    /// Returns once the endpoint has slept more than `before` times, or is ended.
    void awaitSleep(LinxSpid whom, uint32_t before) {
        const std::shared_ptr<linx::Domain> domain = linx::Domain::join();
        const linx::Slot& slot = domain->arena().slot(linx::indexOf(linx::Spid{whom}));
        while (slot.sleeps.loadRelaxed() == before && !progress_.victimEnded && !progress_.victimActed) sched_yield();
    }

    Progress& progress_;
    Endpoint endpoint_{"conductor"};
    const LinxSpid mirror_;
    LinxSpid victim_ = 0;
    uint32_t sent_ = 0;
    uint32_t returned_ = 0;
    uint32_t founds_ = 0;
    uint32_t attaches_ = 0;
    uint32_t notices_ = 0;
    bool ended_ = false;
};

}  // namespace

void conduct(Progress& progress, Stance stance, bool victimIsOpen, Line& parent) {
    Conductor conductor(progress);
    parent.tell(conductor.spid());
    parent.hear();
    if (victimIsOpen) conductor.awaitVictim();
    parent.tell();
    conductor.pause(stance);
    conductor.goOn();
    parent.tell();
    parent.hear();
    conductor.finish();
}

void mirror(Progress& progress, Line& parent) {
    Endpoint endpoint("mirror", LINX_OPEN_LINK);
    parent.tell(spidOf(endpoint));
    for (uint32_t number = 0; number != end;) {
        LinxSignal* signal = nullptr;
        ASSERT_LT(0, linx_receive_w_tmo(endpoint, &signal, patience, anySignal));
        const LinxSpid sender = linx_sender(endpoint, &signal);
        number = signal->number;
        if (number == item || number == end) {
            ASSERT_EQ(linx_send(endpoint, &signal, sender), 0);
        } else if (number == echo) {
            EXPECT_TRUE(linx_send(endpoint, &signal, sender) == 0 || isSentOrTooLate(errno)) << std::strerror(errno);
        } else {
            if (number == parcel) ++progress.parcels;
            ASSERT_EQ(linx_free_buf(endpoint, &signal), 0);
        }
    }
}

}  // namespace scene
