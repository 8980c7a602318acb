#include "models/machine/scheduler.h"

#include <setjmp.h>
#include <ucontext.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "models/machine/hash.h"
#include "models/machine/heap.h"
#include "models/machine/kernel.h"

namespace model {
namespace {

constexpr size_t stackBytes = 256u << 10;
constexpr uint16_t nothing = 0xffff;
constexpr unsigned mostSteps = 20000;

struct Fiber {
    alignas(16) char stack[stackBytes];
    ucontext_t start;
    jmp_buf beginning;
    jmp_buf place;
    bool made;
    bool started;  ///< in this execution
};

Fiber fibers[maxThreads];
jmp_buf schedulerPlace;

}  // namespace

Scheduler scheduler;

void Scheduler::enter() {
    // Each execution begins here again: what the one before has left higher up on this stack is forgotten.
    _setjmp(fibers[scheduler.current_].beginning);
    scheduler.play_->body(scheduler.current_);
    scheduler.threads_[scheduler.current_].state = State::done;
    _longjmp(schedulerPlace, 1);
}

void Scheduler::switchOut() {
    const int keptErrno = errno;  // each process has its own
    if (_setjmp(fibers[current_].place) == 0) _longjmp(schedulerPlace, 1);
    errno = keptErrno;
}

void Scheduler::resume(unsigned thread) {
    current_ = thread;
    Fiber& fiber = fibers[thread];
    const WorldHeap heap;
    model::exploring = true;
    if (_setjmp(schedulerPlace) != 0) {
        model::exploring = false;
        return;
    }
    if (fiber.started) _longjmp(fiber.place, 1);
    fiber.started = true;
    if (fiber.made) _longjmp(fiber.beginning, 1);
    fiber.made = true;
    getcontext(&fiber.start);
    fiber.start.uc_stack.ss_sp = fiber.stack;
    fiber.start.uc_stack.ss_size = stackBytes;
    fiber.start.uc_link = nullptr;
    makecontext(&fiber.start, &Scheduler::enter, 0);
    setcontext(&fiber.start);
}

Ending Scheduler::run(const Play& play, Chooser& chooser, std::vector<std::string>* trace) {
    play_ = &play;
    deaths_ = 0;
    abandoned_ = false;
    violation_.clear();
    for (unsigned t = 0; t < maxThreads; ++t) {
        threads_[t] = {};
        threads_[t].state = t < play.threads ? State::running : State::done;
        threads_[t].lastLoaded = nothing;
        fibers[t].started = false;
    }
    switchesLeft_ = play.switches;
    last_ = 0;
    running_ = true;
    // To its first step: nothing that others see happens before.
    for (unsigned t = 0; t < play.threads && !abandoned_; ++t) resume(t);
    Ending ending = Ending::complete;
    for (unsigned steps = 0; !abandoned_; ++steps) {
        uint32_t ways[maxThreads] = {};
        uint32_t total = 0;
        const bool running = countWays(ways, total);
        if (running && !anyEnabled()) {  // another's death would wake somebody perhaps, but nobody need die
            const std::string sleepers = sleepersInVain();
            if (sleepers.empty()) break;
            violate("a wake-up is lost, for ever asleep:" + sleepers);
        }
        if (steps == mostSteps) violate("an execution does not end");
        if (abandoned_) break;
        if (chooser.wantsState() && chooser.knows(stateHash())) {
            ending = Ending::known;
            break;
        }
        if (!running) break;
        uint32_t choice = total == 1 ? 0 : chooser.choose(total);
        unsigned next = 0;
        while (choice >= ways[next]) choice -= ways[next++];
        if (trace != nullptr) trace->push_back(describe(next, choice));
        step(next, choice);
    }
    running_ = false;
    if (abandoned_) ending = violation_.empty() ? Ending::abandoned : Ending::violated;
    return ending;
}

bool Scheduler::anyReady() const {
    for (unsigned t = 0; t < play_->threads; ++t) {
        if (isReady(t)) return true;
    }
    return false;
}

bool Scheduler::anyEnabled() const {
    for (unsigned t = 0; t < play_->threads; ++t) {
        if (isEnabled(t)) return true;
    }
    return false;
}

unsigned Scheduler::othersRunning() const {
    unsigned running = 0;
    for (unsigned t = 0; t < play_->threads; ++t) {
        if (t != current_ && threads_[t].state == State::running) running |= 1u << t;
    }
    return running;
}

/// In how many ways each thread can take its next step, dying included. False when all have come to their end.
bool Scheduler::countWays(uint32_t* ways, uint32_t& total) const {
    bool running = false;
    const bool stay = switchesLeft_ == 0 && isReady(last_);
    for (unsigned t = 0; t < play_->threads; ++t) {
        if (threads_[t].state == State::running && threads_[t].alone) {
            total = ways[t] = waysOf(t) + endsOf(t);
            return true;
        }
    }
    for (unsigned t = 0; t < play_->threads; ++t) {
        running = running || threads_[t].state == State::running;
        if (!stay || t == last_) ways[t] = waysOf(t) + endsOf(t);
        total += ways[t];
    }
    return running;
}

/// Also a step that teaches nothing and changes nothing, like a store of what is there, leads to another state: the
/// thread stands elsewhere.
void Scheduler::noteStep(unsigned thread) {
    Hash hash(threads_[thread].history);
    hash.add(1);
    threads_[thread].history = hash.value();
}

void Scheduler::step(unsigned thread, uint32_t way) {
    if (way >= waysOf(thread)) return mayDie(thread) && way == waysOf(thread) ? kill(thread) : stop(thread);
    if (!threads_[thread].alone) {
        if (thread != last_ && isReady(last_)) --switchesLeft_;
        last_ = thread;
    }
    noteStep(thread);
    const bool timesOut = threads_[thread].timed && !isReady(thread);
    threads_[thread].wasTimedOut = threads_[thread].wasTimedOut || (timesOut && anyReady());
    threads_[thread].way = way;
    resume(thread);
}

std::string Scheduler::sleepersInVain() const {
    std::string names;
    for (unsigned t = 0; t < play_->threads; ++t) {
        if (threads_[t].state == State::running && !play_->maySleep(t)) names += std::string(" ") + play_->nameOf(t);
    }
    return names;
}

bool Scheduler::isReady(unsigned thread) const {
    const Thread& t = threads_[thread];
    return t.state == State::running && (!t.inCall || t.ready());
}

bool Scheduler::isEnabled(unsigned thread) const {
    const Thread& t = threads_[thread];
    const bool isTimed = t.state == State::running && t.inCall && t.timed;
    return isReady(thread) || (isTimed && (!t.wasTimedOut || !anyReady()));
}

uint32_t Scheduler::waysOf(unsigned thread) const {
    if (!isEnabled(thread)) return 0;
    const Thread& t = threads_[thread];
    return t.inCall ? t.callWays : memory.waysOf(thread, t.access);
}

/// In how many ways its next step may be its end: it is killed before, or stopped.
uint32_t Scheduler::endsOf(unsigned thread) const {
    // Dying before a step that nobody sees is dying before the next one that somebody does; if it comes to that one.
    const Thread& t = threads_[thread];
    const bool matters = t.state == State::running && (t.changesSomething || !isEnabled(thread));
    return matters ? (play_->mortal >> thread & 1) + (play_->stoppable >> thread & 1) : 0;
}

void Scheduler::kill(unsigned thread) {
    threads_[thread].state = State::dead;
    ++deaths_;
    kernel.exit(thread);
}

void Scheduler::killStopped() {
    for (unsigned t = 0; t < play_->threads; ++t) {
        if (threads_[t].state == State::stopped) kill(t);
    }
}

uint64_t Scheduler::stateHash() const {
    Hash hash;
    if (play_->switches != unlimited) {
        hash.add(last_);
        hash.add(switchesLeft_);
    }
    unsigned live = 0;
    for (unsigned t = 0; t < play_->threads; ++t) {
        hash.add(static_cast<uint64_t>(threads_[t].state));
        hash.add(threads_[t].history);
        if (threads_[t].state == State::running) live |= 1u << t;
    }
    return kernel.hash(hash.value(), live);
}

uint32_t Scheduler::pause(const Access& access) {
    Thread& self = threads_[current_];
    // A loop that looks at one word: after the second look it sees nothing else until it has done something else.
    const bool same = access.kind == Access::loads && access.shared == self.lastLoaded;
    self.sameLoads = same ? self.sameLoads + 1 : 0;
    self.lastLoaded = access.kind == Access::loads ? access.shared : nothing;
    self.inCall = false;
    self.access = access;
    if (self.sameLoads >= 2) return memory.waysOf(current_, access) - 1;
    self.changesSomething = access.kind != Access::loads;
    self.callName = nullptr;
    // What nobody writes any more reads the same before and after the steps of others: they need not be tried before.
    self.alone = !self.changesSomething && !memory.isWrittenBy(access.shared, othersRunning());
    if (self.alone && memory.waysOf(current_, access) == 1) {
        noteStep(current_);
        return 0;
    }
    switchOut();
    return self.way;
}

void Scheduler::pauseUnseen() {
    if ((play_->mortal >> current_ & 1) == 0) return;
    Thread& self = threads_[current_];
    self.inCall = true;
    self.alone = true;
    self.changesSomething = true;
    self.callName = "stores unseen";
    self.ready = [] { return true; };
    self.callWays = 1;
    switchOut();
    self.inCall = false;
    self.alone = false;
}

uint32_t Scheduler::call(const char* name, bool changesSomething, std::function<bool()> ready, uint32_t ways) {
    if (!exploring()) return 0;
    Thread& self = threads_[current_];
    self.inCall = true;
    self.alone = false;
    self.changesSomething = changesSomething;
    self.sameCalls = self.callName == name ? self.sameCalls + 1 : 0;
    self.callName = name;
    self.ready = std::move(ready);
    self.callWays = ways;
    self.lastLoaded = nothing;
    switchOut();
    self.inCall = false;
    return self.way;
}

void Scheduler::sleep(const char* name, std::function<bool()> ready, uint64_t deadline) {
    if (!exploring()) return;
    Thread& self = threads_[current_];
    self.timed = true;
    call(name, false, ready);
    self.timed = false;
    const bool isTimeUp = !ready();
    observed(isTimeUp ? 1 : 0);
    if (!isTimeUp) return;
    observed(self.wasTimedOut ? 1 : 0);
    while (timeOf(current_) < deadline) passTick();
}

bool Scheduler::isRepeating(const char* name) const {
    const Thread& self = threads_[current_];
    return exploring() && self.callName == name && self.sameCalls != 0;
}

void Scheduler::dieNow() {
    call("is killed", false, [] { return true; });
    kill(current_);
    switchOut();
}

void Scheduler::observed(uint64_t what) {
    Hash hash(threads_[current_].history);
    hash.add(what);
    threads_[current_].history = hash.value();
}

void Scheduler::abandon(const char* why) {
    if (why != nullptr) {
        std::fprintf(stderr, "%s\n", why);
        std::exit(2);
    }
    abandoned_ = true;
    if (exploring()) switchOut();
}

void Scheduler::violate(const std::string& claim) {
    const HostHeap heap;
    if (violation_.empty()) violation_ = claim;
    abandoned_ = true;
    if (exploring()) switchOut();
}

std::string Scheduler::describe(unsigned thread, uint32_t way) const {
    const Thread& t = threads_[thread];
    std::string text = std::to_string(thread) + " " + play_->nameOf(thread);
    text.resize(14, ' ');
    if (way >= waysOf(thread)) return text + (mayDie(thread) && way == waysOf(thread) ? "is killed" : "is stopped");
    if (t.inCall) return text + t.callName + (way != 0 ? ", and fails" : "");
    static const char* const kinds[] = {"loads", "stores", "updates", "compares"};
    text += kinds[t.access.kind];
    text +=
        " " + nameOfWord(memory.wordOf(t.access.shared)) + " = " + std::to_string(*memory.wordOf(t.access.shared));
    if (way != 0) text += ", but sees what was there " + std::to_string(way) + " before";
    return text;
}

}  // namespace model
