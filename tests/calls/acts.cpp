#include "tests/calls/acts.h"

#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>

#include "host/arena/domain.h"
#include "host/arena/throttle.h"
#include "tests/calls/operations.h"
#include "tests/kit/domain.h"
#include "tests/kit/few_descriptors.h"

namespace calls {
namespace {

using scene::resultOf;

constexpr uint32_t hoardBytes = 16000;

std::optional<FewDescriptors> few;
std::optional<linxtest::ScopedVariable> elsewhere;

linx::Slot& slotOf(LINX* linx, const linx::Domain& domain) {
    return domain.arena().slot(linx::indexOf(linx::Spid{spidOf(linx)}));
}

/// Receives something, waiting for it as long as it takes.
int receiveSomething(Victim& victim) {
    int failure;
    LinxSignal* signal = scene::take(victim, patience, failure);
    if (signal != nullptr) victim.signals.push_back(signal);
    return signal == nullptr && failure == 0 ? ETIMEDOUT : failure;
}

/// Returns once a reclaim of memory is due again, which are kept apart.
void awaitReclaimDue(linx::Header& header) {
    while (!linx::Throttle(header.reclaiming).isDue()) sched_yield();
}

/// Holds memory and, when it is told so, gives it to itself alone, until it is told to end.
void hoard(Line& parent) {
    Endpoint endpoint("hoarder");
    LinxSignal* signals[2];  // as many as are leased together: none is left over to be given up before
    for (LinxSignal*& signal : signals) signal = linx_alloc(endpoint, hoardBytes, scene::gift);
    parent.tell();
    parent.hear();
    EXPECT_FALSE(receive(endpoint, 0));  // which gives up what was asked for before
    for (LinxSignal*& signal : signals) EXPECT_EQ(linx_free_buf(endpoint, &signal), 0);
    parent.tell();
    pollfd told = {parent.descriptor(), POLLIN, 0};
    while (poll(&told, 1, 0) == 0) EXPECT_FALSE(receive(endpoint, 10));
}

/// Returns when the victim says a word, or has ended, which is no failure of its helper's.
void awaitWordOrEnd(const Line& victim) {
    pollfd told = {victim.descriptor(), POLLIN, 0};
    while (poll(&told, 1, -1) == -1 && errno == EINTR) {
    }
}

/// The end of this process is that of the other.
[[noreturn]] void endLike(pid_t child) {
    int status = 0;
    while (waitpid(child, &status, 0) == -1 && errno == EINTR) {
    }
    if (WIFSIGNALED(status)) kill(getpid(), WTERMSIG(status));
    _exit(WEXITSTATUS(status));
}

/// A fork that has failed is tried once more.
pid_t forkIfPossible() {
    const pid_t child = fork();
    return child == -1 ? fork() : child;
}

}  // namespace

void standDown(Victim& victim) {
    few.reset();
    elsewhere.reset();
    // As long as there is the endpoint, every call gives the same one.
    if (victim.linx == nullptr && victim.descriptor != -1) {
        EXPECT_EQ(::close(victim.descriptor), 0);
        victim.descriptor = -1;
    }
    if (victim.helper == nullptr) return;
    victim.helper->tell();
    const bool ends = victim.helper->endsInTime();
    EXPECT_TRUE(ends) << "a helper does not end";
    if (ends) {
        EXPECT_EQ(victim.helper->exitStatus(), 0) << "a helper";
    }
    victim.helper.reset();
}

/// Others have to be asked for a limit.
void lockMemory(Victim&) {
    if (geteuid() != 0) return;
    EXPECT_EQ(mlockall(MCL_FUTURE), 0);
}

void goElsewhere(Victim&) {
    const std::string path = std::getenv("LINX_DOMAIN") + std::string("/") + newDomain;
    elsewhere.emplace("LINX_DOMAIN", path.c_str());
}

void haveDescriptor(Victim& victim) {
    EXPECT_EQ(getDescriptor(victim), 0);
}

void awaitGifts(Victim& victim) {
    haveDescriptor(victim);
    scene::emptyQueue(victim);
    scene::askForGifts(victim);
}

void askToBeWoken(Victim& victim) {
    scene::emptyQueue(victim);
    const std::shared_ptr<linx::Domain> domain = linx::Domain::join();
    EXPECT_EQ(send(victim.linx, victim.conductor, scene::wake, {slotOf(victim.linx, *domain).sleeps.loadRelaxed()}),
              0);
    victim.giftsDue += scene::gifts;
}

void haveSoonTimeout(Victim& victim) {
    scene::emptyQueue(victim);
    EXPECT_NE(linx_request_tmo(victim.linx, 5, nullptr), 0u);
}

void superviseDead(Victim& victim) {
    scene::emptyQueue(victim);
    Child mortal([](Line& parent) {
        Endpoint endpoint("mortal");
        parent.tell(spidOf(endpoint));
        parent.hear();
    });
    EXPECT_NE(attach(victim.linx, mortal.hear(), scene::notice), 0u);
    mortal.kill9();
}

void beGreeted(Victim& victim) {
    scene::emptyQueue(victim);
    EXPECT_EQ(scene::openOther(victim, "stranger"), 0);
    EXPECT_EQ(send(victim.others[0], spidOf(victim.linx), scene::notice), 0);
}

void bePressed(Victim& victim) {
    scene::lend(victim);
    scene::emptyQueue(victim);
    linx::Domain::join()->arena().header().pressure.addRelaxed(1);
}

/// Nothing is free but what the helper keeps for itself.
void pressOthers(Victim& victim) {
    victim.helper = std::make_shared<Child>(hoard);
    victim.helper->hear();
    for (const char* name : {"full 0", "full 1", "full 2"}) EXPECT_EQ(scene::openOther(victim, name), 0);
    const std::shared_ptr<linx::Domain> domain = linx::Domain::join();
    bool found = true;
    while (found) {  // those who were asked for what they keep may not have given it at once
        found = false;
        awaitReclaimDue(domain->arena().header());
        for (LINX* other : victim.others) {
            while (linx_alloc(other, hoardBytes, scene::gift) != nullptr) found = true;
        }
    }
    victim.helper->tell();
    victim.helper->hear();
    awaitReclaimDue(domain->arena().header());
}

void lackDescriptors(Victim& victim) {
    EXPECT_EQ(scene::openOther(victim, "stranger"), 0);
    victim.stranger = spidOf(victim.others[0]);
    hunt(victim.linx, "mirror");  // one who can make room for others
    scene::holdOne(victim);
    few.emplace(0);
}

void leaveCopy(Victim& victim) {
    scene::haveMuch(victim);
    victim.helper = std::make_shared<Child>(awaitWordOrEnd);
}

void loseEndpoint(Victim& victim) {
    victim.helper = std::make_shared<Child>([&](Line& parent) {
        scene::holdOne(victim);
        parent.tell();
        awaitWordOrEnd(parent);
        EXPECT_EQ(linx_close(victim.linx), 0);
    });
    victim.helper->hear();
}

int openElsewhere(Victim& victim) {
    return scene::openOther(victim, "pioneer");
}

int openTaken(Victim& victim) {
    return scene::openOther(victim, "mirror");
}

int getDescriptor(Victim& victim) {
    victim.descriptor = linx_get_descriptor(victim.linx);
    return resultOf(victim.descriptor != -1);
}

int getName(Victim& victim) {
    char* name = nullptr;
    const int result = resultOf(linx_get_name(victim.linx, victim.mirror, &name) == 0);
    if (result != 0) return result;
    EXPECT_STREQ(name, "mirror");
    return resultOf(linx_free_name(victim.linx, &name) == 0);
}

int huntCorpse(Victim& victim) {
    return resultOf(linx_hunt(victim.linx, "corpse", nullptr) == 0);
}

int huntStranger(Victim& victim) {
    return resultOf(linx_hunt(victim.linx, "stranger", nullptr) == 0);
}

int attachStranger(Victim& victim) {
    return scene::attachTo(victim, victim.stranger);
}

int sendToStranger(Victim& victim) {
    return scene::sendTo(victim, victim.stranger);
}

/// The others may be late, and reclaims are kept apart: the second time it is tried until it works.
int allocatePressing(Victim& victim) {
    const auto limit = std::chrono::steady_clock::now() + std::chrono::milliseconds(patience);
    LinxSignal* signal;
    do {
        signal = linx_alloc(victim.linx, hoardBytes, scene::parcel);
    } while (signal == nullptr && victim.again && std::chrono::steady_clock::now() < limit);
    if (signal != nullptr) victim.signals.push_back(signal);
    return resultOf(signal != nullptr);
}

int pollAndReceive(Victim& victim) {
    pollfd readable = {victim.descriptor, POLLIN, 0};
    int ready = -1;
    for (int left = 10; left != 0 && ready == -1; --left) ready = poll(&readable, 1, static_cast<int>(patience));
    EXPECT_NE(ready, 0) << "it is slept over what there is to receive";
    return scene::receiveAny(victim);
}

int receiveLong(Victim& victim) {
    return receiveSomething(victim);
}

int closeCopied(Victim& victim) {
    return scene::close(victim);
}

int closeLost(Victim& victim) {
    return scene::close(victim);
}

/// What follows is done in the child.
int forkAndGoOn(Victim& victim) {
    const pid_t child = forkIfPossible();
    if (child > 0) endLike(child);
    if (child == 0) dieWithParent();
    return scene::sendToConductor(victim);
}

int closeInChild(Victim& victim) {
    const pid_t child = forkIfPossible();
    if (child == -1) return 0;
    if (child == 0) _exit(resultOf(linx_close(victim.linx) == 0));
    int status = 0;
    while (waitpid(child, &status, 0) == -1 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 0;
}

}  // namespace calls
