#ifndef LINXIPC_TESTS_SCRIBBLE_WORKER_H
#define LINXIPC_TESTS_SCRIBBLE_WORKER_H

#include <random>
#include <vector>

#include "platform/linx.h"
#include "tests/scribble/ledger.h"

namespace scribble {

/// One life of a worker: an endpoint that uses every operation, whatever becomes of it. It writes all of each signal
/// that it allocates and reads all of each that it receives, and believes nothing of what it reads. Nothing that it
/// does may wait for longer than a few milliseconds.
class Worker {
public:
    Worker(Ledger& ledger, uint32_t index, uint32_t seed);
    ~Worker();
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    /// Talks to the others until it feels like closing, too much has failed, or it is told to leave.
    void live();

private:
    void act();
    void hunt(uint32_t whom);
    void send(LinxSpid to);
    void relay();
    void attach(uint32_t whom);
    void receive(uint32_t milliseconds, const uint32_t* selection);
    void handle(LinxSignal* signal, int size);
    void useTimers();
    void askForName();
    void poll();
    void release();

    LinxSignal* allocate();
    LinxSignal* takeOutHeld();
    void failed();

    /// Runs one operation, which may wait for so long.
    template <class Operation>
    auto timed(uint32_t milliseconds, Operation operation);

    uint32_t draw(uint32_t below) { return static_cast<uint32_t>(random_() % below); }

    Ledger& ledger_;
    const uint32_t index_;
    std::mt19937 random_;
    LINX* linx_ = nullptr;
    int descriptor_ = -1;
    uint32_t failures_ = 0;
    LinxSpid current_[workerCount] = {};
    std::vector<LinxSignal*> held_;
    std::vector<LinxRef> timers_;
};

}  // namespace scribble

#endif
