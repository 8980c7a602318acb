#include "tests/calls/performance.h"

#include <gtest/gtest.h>
#include <malloc.h>
#include <poll.h>
#include <sys/resource.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>

#include "tests/calls/acts.h"
#include "tests/kit/domain.h"
#include "tests/kit/readable.h"

namespace calls {
namespace {

/// From now on the process has to ask the kernel for every bit of memory.
void emptyHeap() {
    mallopt(M_TOP_PAD, 0);
    rlimit before;
    getrlimit(RLIMIT_AS, &before);
    const rlimit nothingMore = {1, before.rlim_max};
    setrlimit(RLIMIT_AS, &nothingMore);
    for (size_t bytes = 1u << 20; bytes >= 2 * sizeof(void*); bytes = bytes > 64 ? bytes / 2 : bytes - 8) {
        while (std::malloc(bytes) != nullptr) {
        }
    }
    setrlimit(RLIMIT_AS, &before);
}

/// The descriptors and the mapped arenas that the process has.
struct Possessions {
    size_t descriptors;
    size_t arenas = 0;

    Possessions() {
        closelog();
        descriptors = linxtest::TestDomain::openFileCount();
        std::ifstream maps("/proc/self/maps");
        std::string line;
        while (std::getline(maps, line)) arenas += line.find("/arena") != std::string::npos ? 1 : 0;
    }
};

/// Everything so that the operation can be done, or done again.
void getReady(const scene::Operation& operation, Victim& victim) {
    standDown(victim);
    if (victim.linx != nullptr) scene::freeAll(victim);
    for (LINX* other : victim.others) EXPECT_EQ(linx_close(other), 0);
    victim.others.clear();
    if (operation.opens && victim.linx != nullptr) {
        EXPECT_EQ(scene::close(victim), 0);
    }
    if (!operation.opens && victim.linx == nullptr) scene::open(victim);
}

void getToKnow(Victim& victim) {
    victim.mirror = hunt(victim.linx, "mirror");
    victim.conductor = hunt(victim.linx, "conductor");
}

/// Takes the next signal as in a poll loop. Its number; nothing when none comes.
std::optional<uint32_t> receiveNext(Victim& victim) {
    constexpr int mostReadableInVain = 10;  // once for each late byte, introduction, and end of a peer
    pollfd readable = {victim.descriptor, POLLIN, 0};
    for (int left = mostReadableInVain; left != 0; --left) {
        if (poll(&readable, 1, static_cast<int>(patience)) != 1) {
            ADD_FAILURE() << "nothing comes";
            return std::nullopt;
        }
        int failure;
        LinxSignal* signal = scene::take(victim, 0, failure);
        EXPECT_EQ(failure, 0) << std::strerror(failure);
        if (signal == nullptr) continue;
        const uint32_t number = signal->number;
        EXPECT_EQ(linx_free_buf(victim.linx, &signal), 0);
        return number;
    }
    ADD_FAILURE() << "the descriptor is readable though nothing is there";
    return std::nullopt;
}

/// Talks to both bystanders. All that was due before comes, too.
void exchange(Victim& victim) {
    EXPECT_EQ(getDescriptor(victim), 0);
    EXPECT_EQ(send(victim.linx, victim.mirror, scene::echo), 0);
    scene::askForGifts(victim);
    bool hasEcho = false;
    while (!hasEcho || victim.giftsTaken < victim.giftsDue) {
        const std::optional<uint32_t> number = receiveNext(victim);
        ASSERT_TRUE(number) << "waiting for " << (hasEcho ? "a gift" : "the echo");
        hasEcho = hasEcho || number == scene::echo;
    }
    EXPECT_EQ(victim.giftsTaken, victim.giftsDue);
    scene::emptyQueue(victim);
    EXPECT_FALSE(isReadable(victim.descriptor)) << "the descriptor is readable though nothing is there";
}

void expectResult(const scene::Operation& operation, const Promise& promise, int result) {
    const bool listed = std::find(promise.errors.begin(), promise.errors.end(), result) != promise.errors.end();
    EXPECT_TRUE(result == operation.result || listed) << "it answers: " << std::strerror(result);
}

}  // namespace

void perform(const scene::Operation& operation, scene::Progress& progress, Display& display, Line& parent) {
    setpgid(0, 0);
    const Possessions before;
    Victim victim;
    victim.progress = &progress;
    victim.signals.reserve(64);  // what happens in between must not want memory for itself
    victim.others.reserve(8);
    if (!operation.opens) {
        scene::open(victim);
        victim.giftsDue = scene::gifts;
    }
    parent.tell();
    victim.corpse = parent.hear();
    operation.prepare(victim);
    emptyHeap();
    parent.tell();
    parent.hear();
    display.window = Window::open;
    const int result = operation.act(victim);
    display.window = Window::over;
    progress.victimActed = true;

    const Promise& promise = *promiseOf(operation);
    expectResult(operation, promise, result);
    const auto prove = [&] {
        if (promise.proof != nullptr) promise.proof(victim);
    };
    if (result == operation.result && !(promise.canFailUnseen && display.isForGood)) prove();
    getReady(operation, victim);
    victim.again = true;
    operation.prepare(victim);
    EXPECT_EQ(operation.act(victim), operation.result) << "the second time";
    prove();
    standDown(victim);
    if (victim.linx == nullptr) scene::open(victim);
    getToKnow(victim);
    exchange(victim);
    getReady(operation, victim);
    if (victim.linx != nullptr) {
        EXPECT_EQ(scene::close(victim), 0);
    }
    standDown(victim);
    display.parcels = victim.parcels;
    const Possessions after;
    EXPECT_EQ(after.descriptors, before.descriptors) << "descriptors are left";
    EXPECT_EQ(after.arenas, before.arenas) << "the arena is left mapped";
}

}  // namespace calls
