#include <sys/wait.h>

#include <cerrno>
#include <functional>

#include "tests/host/endpoints.h"

namespace linx {
namespace {

using linxtest::KnownEndpoint;

class ArgumentsTest : public linxtest::ArenaDomainTest {
protected:
    void TearDown() override {
        linx.close();
        peer.close();
        ArenaDomainTest::TearDown();
    }

    /// Every operation that is given a signal refuses this pointer and leaves it and what it points to alone.
    void expectRefusedByAll(LINX* user, LinxSignal* pointer) {
        const bool isReadable = pointer != nullptr && pointer != madeUp;
        const uint32_t number = isReadable ? pointer->number : 0;
        const std::vector<std::pair<const char*, std::function<bool(LinxSignal**)>>> operations = {
            {"free", [&](LinxSignal** signal) { return linx_free_buf(user, signal) == -1; }},
            {"send", [&](LinxSignal** signal) { return linx_send(user, signal, peer.spid) == -1; }},
            {"send to nobody", [&](LinxSignal** signal) { return linx_send(user, signal, 0) == -1; }},
            {"sender", [&](LinxSignal** signal) { return linx_sender(user, signal) == 0; }},
            {"attach", [&](LinxSignal** signal) { return linx_attach(user, signal, peer.spid) == 0; }},
            {"attach to nobody", [&](LinxSignal** signal) { return linx_attach(user, signal, 0) == 0; }},
            {"hunt", [&](LinxSignal** signal) { return linx_hunt(user, "peer", signal) == -1; }},
            {"hunt an absent", [&](LinxSignal** signal) { return linx_hunt(user, "absent", signal) == -1; }},
            {"hunt nothing", [&](LinxSignal** signal) { return linx_hunt(user, "", signal) == -1; }},
            {"request", [&](LinxSignal** signal) { return linx_request_tmo(user, 1000, signal) == 0; }},
        };
        for (const auto& [name, operation] : operations) {
            // Null asks hunt and request for a signal of their own.
            if (pointer == nullptr && (name[0] == 'h' || name[0] == 'r')) continue;
            LinxSignal* given = pointer;
            errno = 0;
            EXPECT_TRUE(operation(&given)) << name;
            EXPECT_EQ(errno, EINVAL) << name;
            EXPECT_EQ(given, pointer) << name;
            if (isReadable) {
                EXPECT_EQ(pointer->number, number) << name;
            }
        }
    }

    /// The same for a signal in the arena, of whose block nothing changes.
    void expectBlockRefusedByAll(LINX* user, LinxSignal* pointer) {
        const Block* block = blockOf(pointer);
        const OwnerWord owner = block->owner.loadRelaxed();
        const Spid sender = block->sender.loadRelaxed();
        expectRefusedByAll(user, pointer);
        EXPECT_EQ(block->owner.loadRelaxed(), owner);
        EXPECT_EQ(block->sender.loadRelaxed(), sender);
    }

    LinxSignal* const madeUp = reinterpret_cast<LinxSignal*>(uintptr_t{64});
    KnownEndpoint peer{"peer"};
    KnownEndpoint linx{"linx"};
};

TEST_F(ArgumentsTest, NoOperationTakesAHandleThatIsNone) {
    LINX* closed = linx_open("closed", 0, nullptr);
    ASSERT_EQ(linx_close(closed), 0);
    uint64_t onStack[8] = {};
    const auto inside = reinterpret_cast<LINX*>(reinterpret_cast<uintptr_t>(static_cast<LINX*>(linx)) + 1);
    for (LINX* handle : {static_cast<LINX*>(nullptr), closed, reinterpret_cast<LINX*>(onStack),
                         reinterpret_cast<LINX*>(madeUp), inside}) {
        LinxSignal* own = linx_alloc(linx, 4, 1);
        LinxSignal* const given = own;
        LinxRef reference = 1;
        char* name = nullptr;
        const auto refused = [&](bool failed) {
            const bool isInvalid = errno == EINVAL;
            errno = 0;
            return failed && isInvalid && own == given && reference == 1 && name == nullptr;
        };
        errno = 0;
        EXPECT_TRUE(refused(linx_get_descriptor(handle) == -1));
        EXPECT_TRUE(refused(linx_close(handle) == -1));
        EXPECT_TRUE(refused(linx_hunt(handle, "peer", &own) == -1));
        EXPECT_TRUE(refused(linx_attach(handle, &own, peer.spid) == 0));
        EXPECT_TRUE(refused(linx_alloc(handle, 4, 1) == nullptr));
        EXPECT_TRUE(refused(linx_free_buf(handle, &own) == -1));
        EXPECT_TRUE(refused(linx_send(handle, &own, peer.spid) == -1));
        EXPECT_TRUE(refused(linx_receive(handle, &own, anySignal) == -1));
        EXPECT_TRUE(refused(linx_receive_w_tmo(handle, &own, 0, anySignal) == -1));
        EXPECT_TRUE(refused(linx_sender(handle, &own) == 0));
        EXPECT_TRUE(refused(linx_get_name(handle, peer.spid, &name) == -1));
        EXPECT_TRUE(refused(linx_free_name(handle, &name) == -1));
        EXPECT_TRUE(refused(linx_request_tmo(handle, 0, &own) == 0));
        EXPECT_TRUE(refused(linx_cancel_tmo(handle, &reference) == -1));
        EXPECT_EQ(linx_free_buf(linx, &own), 0);
    }
}

TEST_F(ArgumentsTest, NullWhereAPlaceIsNeededIsRefused) {
    const auto refused = [](bool failed) {
        const bool isInvalid = errno == EINVAL;
        errno = 0;
        return failed && isInvalid;
    };
    LinxSignal* signal = nullptr;
    errno = 0;
    EXPECT_TRUE(refused(linx_attach(linx, nullptr, peer.spid) == 0));
    EXPECT_TRUE(refused(linx_free_buf(linx, nullptr) == -1));
    EXPECT_TRUE(refused(linx_send(linx, nullptr, peer.spid) == -1));
    EXPECT_TRUE(refused(linx_receive(linx, nullptr, anySignal) == -1));
    EXPECT_TRUE(refused(linx_receive(linx, &signal, nullptr) == -1));
    EXPECT_TRUE(refused(linx_receive_w_tmo(linx, nullptr, 0, anySignal) == -1));
    EXPECT_TRUE(refused(linx_receive_w_tmo(linx, &signal, 0, nullptr) == -1));
    EXPECT_TRUE(refused(linx_sender(linx, nullptr) == 0));
    EXPECT_TRUE(refused(linx_get_name(linx, peer.spid, nullptr) == -1));
    EXPECT_TRUE(refused(linx_free_name(linx, nullptr) == -1));
    EXPECT_TRUE(refused(linx_cancel_tmo(linx, nullptr) == -1));
    EXPECT_TRUE(refused(linx_hunt(linx, nullptr, nullptr) == -1));
}

TEST_F(ArgumentsTest, APointerThatIsNoSignalIsLeftAlone) {
    LinxSignal onStack = {77};
    const auto onHeap = std::make_unique<LinxSignal>();
    onHeap->number = 78;
    expectRefusedByAll(linx, nullptr);
    expectRefusedByAll(linx, madeUp);
    expectRefusedByAll(linx, &onStack);
    expectRefusedByAll(linx, onHeap.get());
}

TEST_F(ArgumentsTest, APointerIntoASignalIsNoSignal) {
    LinxSignal* own = linx_alloc(linx, 1000, 1);
    for (const size_t by : {1u, 4u, 36u, 64u, 128u}) {
        const auto inside = reinterpret_cast<LinxSignal*>(reinterpret_cast<char*>(own) + by);
        LinxSignal* given = inside;
        errno = 0;
        EXPECT_EQ(linx_free_buf(linx, &given), -1);
        EXPECT_EQ(errno, EINVAL);
        EXPECT_EQ(linx_send(linx, &given, peer.spid), -1);
        EXPECT_EQ(given, inside);
    }
    EXPECT_EQ(linx_free_buf(linx, &own), 0);
}

TEST_F(ArgumentsTest, AnotherEndpointsSignalIsLeftAlone) {
    LinxSignal* theirs = linx_alloc(peer, 4, 5);
    expectBlockRefusedByAll(linx, theirs);
    EXPECT_EQ(linx_free_buf(peer, &theirs), 0);
}

TEST_F(ArgumentsTest, ASignalThatWasFreedIsNoSignal) {
    LinxSignal* own = linx_alloc(linx, 4, 5);
    LinxSignal* const kept = own;
    ASSERT_EQ(linx_free_buf(linx, &own), 0);
    EXPECT_EQ(own, nullptr);
    expectBlockRefusedByAll(linx, kept);
}

TEST_F(ArgumentsTest, ASignalThatWasSentBelongsToNobodyUntilItIsReceived) {
    LinxSignal* own = linx_alloc(linx, 4, 5);
    LinxSignal* const kept = own;
    ASSERT_EQ(linx_send(linx, &own, peer.spid), 0);
    EXPECT_EQ(own, nullptr);
    expectBlockRefusedByAll(linx, kept);
    expectBlockRefusedByAll(peer, kept);
    LinxSignal* received = nullptr;
    ASSERT_EQ(linx_receive_w_tmo(peer, &received, 0, anySignal), 4);
    EXPECT_EQ(received, kept);
    expectBlockRefusedByAll(linx, kept);
    EXPECT_EQ(linx_free_buf(peer, &received), 0);
}

TEST_F(ArgumentsTest, ASignalInThePrivateQueueIsNotReceivedYet) {
    LinxSignal* own = linx_alloc(linx, 4, 5);
    LinxSignal* const kept = own;
    ASSERT_EQ(linx_send(linx, &own, linx.spid), 0);
    expectBlockRefusedByAll(linx, kept);
    EXPECT_EQ(receiveNumber(linx), 5u);
}

TEST_F(ArgumentsTest, AParkedSignalIsNotTheUsers) {
    LinxSignal* forHunt = linx_alloc(linx, 4, 5);
    LinxSignal* forAttach = linx_alloc(linx, 4, 6);
    LinxSignal* forTimeout = linx_alloc(linx, 4, 7);
    LinxSignal* const kept[] = {forHunt, forAttach, forTimeout};
    ASSERT_EQ(linx_hunt(linx, "absent", &forHunt), 0);
    ASSERT_NE(linx_attach(linx, &forAttach, peer.spid), 0u);
    LinxRef reference = linx_request_tmo(linx, 100000000, &forTimeout);
    ASSERT_NE(reference, 0u);
    EXPECT_EQ(forHunt, nullptr);
    EXPECT_EQ(forAttach, nullptr);
    EXPECT_EQ(forTimeout, nullptr);
    for (LinxSignal* signal : kept) expectBlockRefusedByAll(linx, signal);
    EXPECT_EQ(linx_cancel_tmo(linx, &reference), 0);
    EXPECT_EQ(reference, 0u);
}

TEST_F(ArgumentsTest, OnesOwnSignalIsAlwaysTakenAndItsMemoryComesBack) {
    LinxSpid ended;
    {
        const KnownEndpoint brief("brief");
        ended = brief.spid;
    }
    const KnownEndpoint other("other");
    const LinxSpid never = numberOf(makeSpid(indexOf(peer.spid), generationOf(peer.spid) + 1));
    const std::vector<std::pair<int, std::function<bool(LinxSignal**)>>> failures = {
        {ECONNRESET, [&](LinxSignal** signal) { return linx_send(linx, signal, ended) == -1; }},
        {ESRCH, [&](LinxSignal** signal) { return linx_send(linx, signal, never) == -1; }},
        {ESRCH, [&](LinxSignal** signal) { return linx_send(linx, signal, 0) == -1; }},
        {ESRCH, [&](LinxSignal** signal) { return linx_send(linx, signal, ~0u) == -1; }},
        {ESRCH, [&](LinxSignal** signal) { return linx_send(linx, signal, peer.spid | 1u << 31) == -1; }},
        {ESRCH, [&](LinxSignal** signal) { return linx_attach(linx, signal, never) == 0; }},
        {ESRCH, [&](LinxSignal** signal) { return linx_attach(linx, signal, 0) == 0; }},
        {ESRCH, [&](LinxSignal** signal) { return linx_attach(linx, signal, peer.spid | 1u << 31) == 0; }},
        {EINVAL, [&](LinxSignal** signal) { return linx_hunt(linx, "", signal) == -1; }},
        {EINVAL, [&](LinxSignal** signal) { return linx_hunt(linx, nullptr, signal) == -1; }},
        {ENAMETOOLONG,
         [&](LinxSignal** signal) { return linx_hunt(linx, std::string(256, 'x').c_str(), signal) == -1; }},
    };
    const uint32_t before = ownedBlocks();
    for (size_t i = 0; i < failures.size(); ++i) {
        const uint32_t droppedBefore = dropped(linx.spid);
        LinxSignal* signal = linx_alloc(linx, 100, 5);
        errno = 0;
        EXPECT_TRUE(failures[i].second(&signal)) << i;
        EXPECT_EQ(errno, failures[i].first) << i;
        EXPECT_EQ(signal, nullptr) << i;
        EXPECT_EQ(ownedBlocks(), before) << i;
        EXPECT_EQ(dropped(linx.spid), droppedBefore + 1) << i;
    }
}

TEST_F(ArgumentsTest, AFullHuntTableTakesTheSignalHoweverLargeItIs) {
    const linxtest::DisorderAllowed allowed;
    arena.header().huntsUsed.storeRelaxed(huntCount);
    ASSERT_TRUE(arena.provideHunt(huntCount - 1));
    for (uint32_t i = 0; i < huntCount; ++i) arena.hunt(i).hunter.storeRelaxed(huntedBy(linx.spid));
    // More than an endpoint keeps for itself, so that freeing them gives some back to all.
    std::vector<LinxSignal*> signals;
    for (int i = 0; i < 8; ++i) signals.push_back(linx_alloc(linx, 1u << 20, 5));
    for (LinxSignal*& signal : signals) {
        ASSERT_NE(signal, nullptr);
        EXPECT_EQ(linx_hunt(linx, "absent", &signal), -1);
        EXPECT_EQ(errno, ENOSPC);
        EXPECT_EQ(signal, nullptr);
    }
    EXPECT_EQ(ownedBlocks(), 0u);
    for (uint32_t i = 0; i < huntCount; ++i) arena.hunt(i).hunter.storeRelaxed(HunterWord::none);
    arena.header().huntsUsed.storeRelaxed(0);
}

TEST_F(ArgumentsTest, SizesOutsideTheBoundsAreRefused) {
    const auto errorOf = [&](uint32_t size) {
        errno = 0;
        LinxSignal* signal = linx_alloc(linx, size, 1);
        const int error = errno;
        if (signal == nullptr) return error;
        linx_free_buf(linx, &signal);
        return 0;
    };
    for (const uint32_t size : {0u, 1u, 3u}) EXPECT_EQ(errorOf(size), EINVAL);
    for (const uint32_t size : {4u, 5u, 1u << 20}) EXPECT_EQ(errorOf(size), 0);
    for (const uint32_t size : {(1u << 20) + 1, 1u << 31, ~0u}) EXPECT_EQ(errorOf(size), EMSGSIZE);
}

TEST_F(ArgumentsTest, OnlyAReferenceThatIsWaitingCanBeCancelled) {
    LinxSignal* notice = linx_alloc(linx, 4, 1);
    LinxRef attached = linx_attach(linx, &notice, peer.spid);
    const LinxRef kept = attached;
    LinxRef nothing = 0;
    LinxRef unknown = 4711;
    EXPECT_EQ(linx_cancel_tmo(linx, &attached), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(attached, kept);
    EXPECT_EQ(linx_cancel_tmo(linx, &nothing), -1);
    EXPECT_EQ(linx_cancel_tmo(linx, &unknown), -1);
    EXPECT_EQ(unknown, 4711u);
    LinxRef fired = linx_request_tmo(linx, 0, nullptr);
    EXPECT_EQ(receiveNumber(linx), static_cast<uint32_t>(LINX_OS_TIMEOUT_SIG));
    EXPECT_EQ(linx_cancel_tmo(linx, &fired), -1);
    EXPECT_EQ(errno, EINVAL);
}

TEST_F(ArgumentsTest, ANameIsHandedBackOnceAndToItsEndpoint) {
    char* name = nullptr;
    ASSERT_EQ(linx_get_name(linx, peer.spid, &name), 0);
    EXPECT_STREQ(name, "peer");
    char* const kept = name;
    EXPECT_EQ(linx_free_name(peer, &name), -1);
    EXPECT_EQ(name, kept);
    char text[] = "text";
    char* foreign = text;
    EXPECT_EQ(linx_free_name(linx, &foreign), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(foreign, text);
    EXPECT_EQ(linx_free_name(linx, &name), 0);
    EXPECT_EQ(name, nullptr);
    name = kept;
    EXPECT_EQ(linx_free_name(linx, &name), -1);
    name = nullptr;
    EXPECT_EQ(linx_free_name(linx, &name), -1);
    for (const LinxSpid spid : {0u, ~0u, numberOf(makeSpid(SlotIndex{8000}, 1)), peer.spid | 1u << 31}) {
        EXPECT_EQ(linx_get_name(linx, spid, &name), -1);
        EXPECT_EQ(errno, ESRCH);
        EXPECT_EQ(name, nullptr);
    }
}

TEST_F(ArgumentsTest, AQueuedSignalIsGivenOutAlsoWhenSomebodyScribbledItOutOfThePageMap) {
    sendNumber(peer, linx.spid, 5);
    sendNumber(peer, linx.spid, 6);
    sendNumber(peer, linx.spid, 7, 100000);
    LinxSignal* received = nullptr;
    const uint32_t selection[] = {1, 6};
    ASSERT_EQ(linx_receive_w_tmo(linx, &received, 0, selection), 4);
    const uint32_t page = pageOf(refOf(received)) - arena.filePageOf(PageIndex{0});
    const uint32_t word = arena.pageEntry(PageIndex{page}).loadRelaxed();
    arena.pageEntry(PageIndex{page}).storeRelaxed(0);
    EXPECT_EQ(receiveNumber(linx), 5u);
    EXPECT_EQ(receiveNumber(linx), 7u);
    arena.pageEntry(PageIndex{page}).storeRelaxed(word);
    EXPECT_EQ(linx_free_buf(linx, &received), 0);
}

}  // namespace
}  // namespace linx
