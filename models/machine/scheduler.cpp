#include "models/machine/scheduler.h"

#include <setjmp.h>
#include <ucontext.h>

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
    jmp_buf place;
    bool started;
};

Fiber fibers[maxThreads];
jmp_buf schedulerPlace;

}  // namespace

Scheduler scheduler;

void Scheduler::enter() {
    const unsigned self = scheduler.current_;
    scheduler.play_->body(self);
    scheduler.threads_[self].state = State::done;
    _longjmp(schedulerPlace, 1);
}

void Scheduler::switchOut() {
    if (_setjmp(fibers[current_].place) == 0) _longjmp(schedulerPlace, 1);
}

void Scheduler::resume(unsigned thread) {
    current_ = thread;
    Fiber& fiber = fibers[thread];
    const WorldHeap heap;
    inThread_ = true;
    if (_setjmp(schedulerPlace) != 0) {
        inThread_ = false;
        return;
    }
    if (fiber.started) _longjmp(fiber.place, 1);
    fiber.started = true;
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
    exploring_ = true;
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
    exploring_ = false;
    if (abandoned_) ending = violation_.empty() ? Ending::abandoned : Ending::violated;
    return ending;
}

bool Scheduler::anyEnabled() const {
    for (unsigned t = 0; t < play_->threads; ++t) {
        if (isEnabled(t)) return true;
    }
    return false;
}

/// In how many ways each thread can take its next step, dying included. False when all have come to their end.
bool Scheduler::countWays(uint32_t* ways, uint32_t& total) const {
    bool running = false;
    const bool stay = switchesLeft_ == 0 && isEnabled(last_);
    for (unsigned t = 0; t < play_->threads; ++t) {
        running = running || threads_[t].state == State::running;
        if (!stay || t == last_) ways[t] = waysOf(t) + (mayDie(t) ? 1 : 0);
        total += ways[t];
    }
    return running;
}

void Scheduler::step(unsigned thread, uint32_t way) {
    if (way == waysOf(thread)) return kill(thread);
    if (thread != last_ && isEnabled(last_)) --switchesLeft_;
    last_ = thread;
    // Also a step that teaches nothing and changes nothing, like a store of what is there, leads to another state:
    // the thread stands elsewhere.
    Hash hash(threads_[thread].history);
    hash.add(1);
    threads_[thread].history = hash.value();
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

bool Scheduler::isEnabled(unsigned thread) const {
    const Thread& t = threads_[thread];
    return t.state == State::running && (!t.inCall || t.ready());
}

uint32_t Scheduler::waysOf(unsigned thread) const {
    if (!isEnabled(thread)) return 0;
    const Thread& t = threads_[thread];
    return t.inCall ? 1 : memory.waysOf(thread, t.access);
}

bool Scheduler::mayDie(unsigned thread) const {
    // Dying before a step that nobody sees is dying before the next one that somebody does; if it comes to that one.
    const Thread& t = threads_[thread];
    return (play_->mortal >> thread & 1) != 0 && t.state == State::running &&
           (t.changesSomething || !isEnabled(thread));
}

void Scheduler::kill(unsigned thread) {
    threads_[thread].state = State::dead;
    ++deaths_;
    kernel.exit(thread);
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
    switchOut();
    return self.way;
}

void Scheduler::call(const char* name, bool changesSomething, std::function<bool()> ready) {
    if (!exploring()) return;
    Thread& self = threads_[current_];
    self.inCall = true;
    self.changesSomething = changesSomething;
    self.callName = name;
    self.ready = std::move(ready);
    self.lastLoaded = nothing;
    switchOut();
    self.inCall = false;
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
    std::string text = play_->nameOf(thread);
    text.resize(12, ' ');
    if (way == waysOf(thread)) return text + "is killed";
    if (t.inCall) return text + t.callName;
    static const char* const kinds[] = {"loads", "stores", "updates", "compares"};
    text += kinds[t.access.kind];
    text +=
        " " + nameOfWord(memory.wordOf(t.access.shared)) + " = " + std::to_string(*memory.wordOf(t.access.shared));
    if (way != 0) text += ", but sees what was there " + std::to_string(way) + " before";
    return text;
}

}  // namespace model
