#ifndef LINXIPC_MODELS_MACHINE_SCHEDULER_H
#define LINXIPC_MODELS_MACHINE_SCHEDULER_H

#include <functional>
#include <string>

#include "models/machine/memory.h"

namespace model {

/// Decides at every fork of an execution how it goes on.
class Chooser {
public:
    virtual ~Chooser() = default;
    /// One of `count` ways, `count` >= 1.
    virtual uint32_t choose(uint32_t count) = 0;
    /// Whether it wants to be told of the state that is reached now.
    virtual bool wantsState() const = 0;
    /// Told of a state; true when nothing new can come of it.
    virtual bool knows(uint64_t state) = 0;
};

constexpr unsigned unlimited = ~0u;

/// Threads of one execution, each an endpoint's process, and what may befall them.
struct Play {
    unsigned threads;
    unsigned mortal;     ///< bit t: thread t may be killed before any step that others can see
    unsigned stoppable;  ///< bit t: thread t may be stopped there for good, with all that it has open
    unsigned switches;   ///< how often a thread that could go on may be left for another, at most
    std::function<void(unsigned thread)> body;
    std::function<const char*(unsigned thread)> nameOf;
    std::function<bool(unsigned thread)> maySleep;  ///< whether it is right that a thread sleeps for ever
};

enum class Ending {
    complete,   ///< every thread has finished or died
    known,      ///< reached a state that was there before
    abandoned,  ///< see Scheduler::abandon
    violated    ///< a claim does not hold; see Scheduler::violation
};

/// Runs threads as fibers of one process, one step that others can see at a time.
class Scheduler {
public:
    /// Runs one execution from the beginning that memory and kernel have taken. With `trace`, tells each step there.
    Ending run(const Play& play, Chooser& chooser, std::vector<std::string>* trace = nullptr);

    /// Whether the caller is a thread of an execution, and which. Outside, the thread that `actAs` named.
    bool exploring() const { return model::exploring; }
    /// Whether an execution is going on, in one of its threads or in the kernel that ends one.
    bool running() const { return running_; }
    unsigned thread() const { return current_; }
    void actAs(unsigned thread) { current_ = thread; }
    bool isDead(unsigned thread) const { return threads_[thread].state == State::dead; }
    unsigned deaths() const { return deaths_; }

    /// After an execution: whoever was stopped is killed.
    void killStopped();

    /// Before an access to a shared word: lets others go first. Returns which of its ways the access goes.
    uint32_t pause(const Access& access);

    /// Before a store that no other thread ever sees: whoever may be killed may be killed here too, and who looks at
    /// the end sees what was done by then.
    void pauseUnseen();

    /// Before a system call that others can see: lets others go first, and waits until `ready`. Returns in which of
    /// `ways` it goes.
    uint32_t call(const char* name, bool changesSomething, std::function<bool()> ready, uint32_t ways = 1);

    /// The same for one that waits until `ready` or `deadline`, which its clock then shows. That comes once while
    /// others could go on, and else when nobody can: whoever tries again and again holds nobody up for ever.
    void sleep(const char* name, std::function<bool()> ready, uint64_t deadline);

    /// Whether the thread has made this very call twice and nothing else since: another one finds nothing new.
    bool isRepeating(const char* name) const;

    /// The thread is killed here, if it has come so far. Does not return.
    void dieNow();

    /// The thread has learnt something: its future may differ from now on.
    void observed(uint64_t what);

    /// Ends this execution; it counts for nothing. With `why`, the whole exploration is wrong.
    void abandon(const char* why);

    /// A claim does not hold. Ends the execution when it runs.
    void violate(const std::string& claim);
    const std::string& violation() const { return violation_; }

    // The running thread's clocks, in microseconds. The precise one shows one more each time that it is asked; the
    // kernel's ticks come when somebody lets them.
    uint64_t askTime() { return coarseTime() + threads_[current_].timeAsked++; }
    uint64_t coarseTime() const { return microsecondsPerTick * threads_[current_].ticks; }
    uint64_t timeOf(unsigned thread) const {
        return microsecondsPerTick * threads_[thread].ticks + threads_[thread].timeAsked;
    }
    void passTick() { ++threads_[current_].ticks; }

private:
    static constexpr uint64_t microsecondsPerTick = 20000;
    enum class State : uint8_t { running, done, dead, stopped };
    struct Thread {
        State state;
        bool inCall;
        bool changesSomething;
        bool alone;  ///< its next step is the same before and after those of all others
        Access access;
        const char* callName;
        unsigned sameCalls;
        bool timed;        ///< goes on also when its time is up
        bool wasTimedOut;  ///< while others could go on
        std::function<bool()> ready;
        uint32_t callWays;
        uint32_t way;
        uint64_t history;
        uint64_t timeAsked;
        uint64_t ticks;
        uint16_t lastLoaded;
        unsigned sameLoads;
    };

    static void enter();
    void switchOut();
    void resume(unsigned thread);
    bool isReady(unsigned thread) const;
    bool isEnabled(unsigned thread) const;
    bool anyReady() const;
    uint32_t waysOf(unsigned thread) const;
    uint32_t endsOf(unsigned thread) const;
    bool mayDie(unsigned thread) const { return (play_->mortal >> thread & 1) != 0; }
    uint64_t stateHash() const;
    std::string sleepersInVain() const;
    bool anyEnabled() const;
    unsigned othersRunning() const;
    bool countWays(uint32_t* ways, uint32_t& total) const;
    void noteStep(unsigned thread);
    void step(unsigned thread, uint32_t way);
    void kill(unsigned thread);
    void stop(unsigned thread) { threads_[thread].state = State::stopped; }
    std::string describe(unsigned thread, uint32_t way) const;

    const Play* play_ = nullptr;
    bool running_ = false;
    unsigned current_ = 0;
    unsigned deaths_ = 0;
    unsigned switchesLeft_ = 0;
    unsigned last_ = 0;  ///< the thread that went last
    bool abandoned_ = false;
    std::string violation_;
    std::array<Thread, maxThreads> threads_;
};

extern Scheduler scheduler;

}  // namespace model

#endif
