#ifndef LINXIPC_MODELS_SCENARIOS_STAGE_H
#define LINXIPC_MODELS_SCENARIOS_STAGE_H

#include <array>
#include <memory>
#include <string>
#include <vector>

#include "host/arena/domain.h"
#include "models/machine/kernel.h"
#include "models/machine/scheduler.h"
#include "platform/linx.h"

namespace model {

constexpr unsigned maxActors = maxThreads;

/// The one in which the scenario plays.
linx::Domain& domain();

/*
 * The endpoints of a scenario, and the books on what they send and receive. The claims that hold in every execution:
 *
 *   1  no lost wake-up: nobody sleeps for ever while there is a signal for him
 *   2  no signal is lost between two that live, none comes twice, and none overtakes another of the same sender
 *   3  what is received is what was sent: number, size, content, sender
 *   4  no block has two owners
 *   5  a supervisor is told of an end once, after what the dead one had sent
 *   6  a death costs no block: reaping finds all, also when the reaper dies
 *   7  at the end every word of the arena is in order
 *   8  a spid's name is never another's
 *
 * Claim 1 is the scheduler's; the others are looked after here.
 */
class Stage {
public:
    Stage(const std::vector<const char*>& names, const char* spinMicroseconds, uint32_t pages);

    // What an actor may do in its act; the running one is meant.

    /// Sends the next of the signals numbered for `to`, over `via` if that is another. Returns what the send
    /// returned.
    int send(unsigned to) { return send(to, to); }
    int send(unsigned to, unsigned via);
    /// Receives one signal and books it; waits without limit, or not at all. False when there was none.
    bool receive(bool mayWait = true);
    /// The same, and keeps the signal.
    bool receiveToKeep(bool mayWait = true);
    /// Receives until the notice of somebody's end has come.
    void receiveUntilNotice(unsigned of);
    /// Receives until so many signals of `from` have come.
    void receiveFrom(unsigned from, unsigned count);
    /// The same from a poll loop: waits for the descriptor, and receives what does not wait.
    void pollFrom(unsigned from, unsigned count);
    /// Receives a signal that is meant for another and sends the same block on.
    void relay();
    void supervise(unsigned whom);
    /// A hunt for an actor that may not have opened yet; answered by a signal that `receive` books.
    void hunt(unsigned whom);
    /// Asks for the name behind an actor's spid, who may have ended.
    void askName(unsigned of);
    /// Is killed, if it has come so far.
    void die() { scheduler.dieNow(); }
    void open(unsigned actor);
    void close();
    /// Allocates a signal and keeps it; frees one that was kept.
    void keep();
    void freeKept();
    /// Allocates one of another size and keeps it.
    void keepOther();
    /// The same as `keep` where there may be no memory. Who has some to spare may not sleep for ever after a failure.
    bool tryToKeep();
    /// Writes garbage into what it keeps.
    void scribbleOverKept();
    /// It must have been told of the other's end by now.
    void expectNotice(unsigned of);
    /// Whether it has free blocks of its own for another signal.
    bool hasFree() const { return hasFree(self()); }
    /// Whether there is memory for one more that is nobody else's.
    bool isThereMore() const;
    /// Sends the signal that was kept last as the next of those numbered for `to`.
    void sendKept(unsigned to);
    /// Sends a kept signal to another, who keeps it from then on.
    void lendKept(unsigned to);
    /// Waits until another has been killed, or has closed.
    void awaitEnd(unsigned of);
    /// Waits until another has opened.
    void awaitOpen(unsigned actor);
    /// Says to another that he may go on, and waits until it is said.
    void say(unsigned to);
    void awaitWord();
    /// The kernel's clock ticks for it.
    void passTick() { scheduler.passTick(); }

    /// Whether something waits for this actor, to wake it.
    bool isWanted(unsigned actor) const { return hasMail(actor) || (memoryRanOut_ && hasFree(actor)); }

    // What `prepare` may do.

    /// From now on this actor is meant.
    void as(unsigned actor) { scheduler.actAs(actor); }
    /// Opens the first `count` actors.
    void openFirst(unsigned count);
    /// The same, and all others have sent one signal to the first: doorbells are open, and everybody is parked.
    void openAcquainted(unsigned count);
    /// Lets an actor receive all that is there.
    void drain(unsigned actor);
    /// Ends an actor, as by a kill.
    void killNow(unsigned actor);
    /// The same, as if it had still been opening, and had answered the only hunt without saying so.
    void dieAnswering(unsigned actor);
    /// Opens endpoints in this actor's process until so many fresh slots are left: who opens then gets the slot of
    /// one who has ended.
    void fillSlots(unsigned keeper, unsigned left = 0);
    /// Somebody has rung an actor's doorbell until it took no more.
    void fillDoorbell(unsigned actor);
    /// A process that the actor's has forked keeps its copy of the doorbell, and does nothing else.
    void fork(unsigned actor) { kernel.copyDoorbell(spids_[actor]); }
    /// From now on so many of an actor's writes to doorbells may fail for want of memory, whichever they are.
    void failWrites(unsigned actor, uint8_t most) { kernel.failWrites(actor, most); }
    /// From now on an actor's process may have so many descriptors more, and not one beyond.
    void limitDescriptors(unsigned actor, unsigned more) { kernel.limitDescriptors(actor, more); }

    /// At the end of `prepare`: every execution begins here.
    void begin();

    /// At the end of an execution: what is left is received, everybody who died is reaped, everybody closes; the
    /// claims must hold.
    void check();

private:
    static constexpr uint32_t letter = 1000;  ///< signal number of what actors send each other
    static constexpr uint32_t notice = 2000;  ///< plus the actor supervised
    static constexpr uint32_t found = 3000;   ///< plus the actor hunted

    const linx::Arena& arena() const;
    unsigned self() const { return scheduler.thread(); }
    bool isDead(unsigned actor) const { return killed_[actor] || scheduler.isDead(actor); }
    bool hasEnded(unsigned actor) const { return closed_[actor] || isDead(actor); }
    LINX* own() { return handles_[self()]; }
    bool hasMail(unsigned actor) const;
    bool hasFree(unsigned actor) const;
    LinxSignal* allocate(uint32_t number);
    LinxSignal* receiveSignal(bool mayWait, uint32_t& size);
    int sendAsLetter(LinxSignal* signal, unsigned to, unsigned via);
    void hold(LinxSignal* signal);
    void letGo(LinxSignal* signal);
    void book(LinxSignal* signal, uint32_t size);
    void bookLetter(LinxSignal* signal, uint32_t size);
    void checkLetters();
    void checkHunts();
    void checkArena(bool all);
    void closeAll();
    LINX* openUnder(const std::string& name);
    void openExtra(const std::string& name);
    void closeHandle(LINX* handle);

    std::vector<const char*> names_;
    std::array<LINX*, maxActors> handles_{};
    std::array<LinxSpid, maxActors> spids_{};
    std::array<bool, maxActors> killed_{};
    std::array<bool, maxActors> closed_{};            ///< or about to be
    std::vector<std::pair<LINX*, unsigned>> extras_;  ///< endpoints of nobody's act, and in whose process
    bool slotsAreUsedAgain_ = false;
    bool memoryRanOut_ = false;
    std::array<bool, maxActors> said_{};
    std::array<std::array<unsigned, maxActors>, maxActors> begun_{};
    std::array<std::array<unsigned, maxActors>, maxActors> sent_{};
    std::array<std::array<unsigned, maxActors>, maxActors> received_{};
    std::array<std::array<unsigned, maxActors>, maxActors> noticed_{};
    std::array<std::array<unsigned, maxActors>, maxActors> supervised_{};
    std::array<unsigned, maxActors> answered_{};
    std::array<unsigned, maxActors> hunted_{};
    std::array<unsigned, maxActors> hunter_{};            ///< by whom
    std::vector<std::pair<LinxSignal*, unsigned>> held_;  ///< by whom
    std::array<std::vector<LinxSignal*>, maxActors> kept_;
    std::array<std::array<unsigned, maxActors>, maxActors> via_{};
};

}  // namespace model

#endif
