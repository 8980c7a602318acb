// Operations that fail as the test wants it: what they return, and who has the signals then.

#include <cstdlib>
#include <stdexcept>
#include <utility>

#include "fixture.h"

namespace {

class FailuresTest : public PlatformTest {
protected:
    /// Makes every operation once, with whatever it needs.
    int call(const std::string& operation) {
        const auto isSet = [](const void* pointer) { return pointer != nullptr ? 0 : -1; };
        const auto isNotZero = [](std::uint32_t number) { return number != 0 ? 0 : -1; };
        signal = linx_alloc(self, 4, 300);
        if (operation == "linx_open") return isSet(linx_open("Other", 0, nullptr));
        if (operation == "linx_get_descriptor") return linx_get_descriptor(self) == 4711 ? 0 : -1;
        if (operation == "linx_close") return linx_close(self);
        if (operation == "linx_hunt") return linx_hunt(self, "Peer", &signal);
        if (operation == "linx_attach") return isNotZero(linx_attach(self, &signal, 7));
        if (operation == "linx_alloc") return isSet(signal);
        if (operation == "linx_free_buf") return linx_free_buf(self, &signal);
        if (operation == "linx_send") return linx_send(self, &signal, 7);
        if (operation == "linx_receive") return receive(self).rfind("error", 0) == 0 ? -1 : 0;
        if (operation == "linx_receive_w_tmo") return receiveWithin(10).rfind("error", 0) == 0 ? -1 : 0;
        if (operation == "linx_sender") return isNotZero(linx_sender(self, &signal));
        if (operation == "linx_get_name") {
            std::free(std::exchange(name, nullptr));
            return linx_get_name(self, 7, &name);
        }
        if (operation == "linx_free_name") return linx_free_name(self, &name);
        if (operation == "linx_request_tmo") return isNotZero(linx_request_tmo(self, 100, &signal));
        EXPECT_EQ(operation, "linx_cancel_tmo");
        return linx_cancel_tmo(self, &reference);
    }

    char* name = nullptr;
    LinxRef reference = 0;
};

class EachOperationTest : public FailuresTest, public ::testing::WithParamInterface<const char*> {};

TEST_P(EachOperationTest, FailsAsOftenAsToldWithItsError) {
    platform.descriptor = 4711;
    platform.setName(7, "Peer");
    for (int i = 0; i < 4; ++i) platform.arrive(7, 300);
    linx_get_name(self, 7, &name);
    reference = linx_request_tmo(self, 100, nullptr);
    platform.fail(GetParam(), {EIO, 0});
    platform.failAlways(GetParam(), EACCES);
    errno = 0;
    EXPECT_EQ(call(GetParam()), -1);
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(call(GetParam()), 0);
    EXPECT_EQ(call(GetParam()), -1);
    EXPECT_EQ(errno, EACCES);
    std::free(name);
}

INSTANTIATE_TEST_SUITE_P(Platform, EachOperationTest,
                         ::testing::Values("linx_open", "linx_get_descriptor", "linx_close", "linx_hunt",
                                           "linx_attach", "linx_alloc", "linx_free_buf", "linx_send", "linx_receive",
                                           "linx_receive_w_tmo", "linx_sender", "linx_get_name", "linx_free_name",
                                           "linx_request_tmo", "linx_cancel_tmo"),
                         [](const auto& test) { return std::string(test.param); });

class TakenSignalTest : public FailuresTest, public ::testing::WithParamInterface<const char*> {};

TEST_P(TakenSignalTest, IsFreedWhenTheOperationFails) {
    platform.fail(GetParam(), {ENOMEM});
    EXPECT_EQ(call(GetParam()), -1);
    EXPECT_EQ(signal, nullptr);
    EXPECT_THAT(platform.signalsInHand(), IsEmpty());
    platform.advance(1h);
    EXPECT_EQ(receiveWithin(0), "nothing");
}

INSTANTIATE_TEST_SUITE_P(Platform, TakenSignalTest,
                         ::testing::Values("linx_hunt", "linx_attach", "linx_send", "linx_request_tmo"),
                         [](const auto& test) { return std::string(test.param); });

TEST_F(FailuresTest, AnOperationThatThereIsNotIsRefused) {
    EXPECT_THROW(platform.fail("linx_sent", {EIO}), std::invalid_argument);
    EXPECT_THROW(platform.failAlways("PetWatchdog", EIO), std::invalid_argument);
}

TEST_F(FailuresTest, ASignalThatIsNotTheProgramsIsRefusedByAll) {
    LinxSignal made{300};
    LinxSignal* given = platform.makeSignal(300);
    LinxSignal* const earlier = given;
    linx_request_tmo(self, 100, &given);
    for (LinxSignal* const foreign : {&made, earlier, static_cast<LinxSignal*>(nullptr)}) {
        signal = foreign;
        errno = 0;
        EXPECT_EQ(linx_send(self, &signal, 7), -1);
        EXPECT_EQ(linx_free_buf(self, &signal), -1);
        EXPECT_EQ(linx_attach(self, &signal, 7), 0u);
        EXPECT_EQ(linx_sender(self, &signal), 0u);
        EXPECT_EQ(errno, EINVAL);
        EXPECT_EQ(signal, foreign);
    }
    signal = &made;
    EXPECT_EQ(linx_hunt(self, "Peer", &signal), -1);
    EXPECT_EQ(linx_request_tmo(self, 100, &signal), 0u);
    EXPECT_EQ(signal, &made);
}

TEST_F(FailuresTest, AHandleThatIsNotOpenIsRefusedAndKeepsItsSignals) {
    LINX* const closed = linx_open("Closed", 0, nullptr);
    linx_close(closed);
    reference = linx_request_tmo(self, 100, nullptr);
    LinxSignal* const kept = platform.makeSignal(300);
    for (LINX* const handle : {static_cast<LINX*>(nullptr), reinterpret_cast<LINX*>(this), closed}) {
        signal = kept;
        errno = 0;
        EXPECT_EQ(linx_get_descriptor(handle), -1);
        EXPECT_EQ(linx_hunt(handle, "Peer", &signal), -1);
        EXPECT_EQ(linx_attach(handle, &signal, 7), 0u);
        EXPECT_EQ(linx_alloc(handle, 4, 300), nullptr);
        EXPECT_EQ(linx_free_buf(handle, &signal), -1);
        EXPECT_EQ(linx_send(handle, &signal, 7), -1);
        EXPECT_EQ(linx_sender(handle, &signal), 0u);
        EXPECT_EQ(linx_request_tmo(handle, 100, &signal), 0u);
        EXPECT_EQ(linx_cancel_tmo(handle, &reference), -1);
        EXPECT_EQ(signal, kept);
        EXPECT_EQ(errno, EINVAL);
        EXPECT_EQ(linx_get_name(handle, 1, &name), -1);
        EXPECT_EQ(linx_receive(handle, &signal, any), -1);
        EXPECT_EQ(linx_receive_w_tmo(handle, &signal, 10, any), -1);
        EXPECT_EQ(errno, EINVAL);
    }
    EXPECT_EQ(platform.now(), 0ms);
    EXPECT_THAT(platform.sent, IsEmpty());
    EXPECT_THAT(platform.signalsInHand(), ElementsAre(platform.nameOf(kept)));
}

TEST_F(FailuresTest, SizesThatNoPlatformAllocatesAreRefused) {
    EXPECT_EQ(linx_alloc(self, 3, 300), nullptr);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(linx_alloc(self, (1 << 20) + 1, 300), nullptr);
    EXPECT_EQ(errno, EMSGSIZE);
    signal = linx_alloc(self, 1 << 20, 300);
    EXPECT_NE(signal, nullptr);
    linx_free_buf(self, &signal);
}

}  // namespace
