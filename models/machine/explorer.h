#ifndef LINXIPC_MODELS_MACHINE_EXPLORER_H
#define LINXIPC_MODELS_MACHINE_EXPLORER_H

#include <string>
#include <vector>

#include "models/machine/scheduler.h"

namespace model {

/// What is to be explored.
struct Model {
    Play play;
    std::function<void()> prepare;  ///< lays down the state in which every execution begins
    std::function<void()> check;    ///< after each execution, alone: calls Scheduler::violate
};

struct Limits {
    uint64_t states = 500000;     ///< stop after so many
    uint64_t executions = 20000;  ///< of drawn schedules
    uint64_t seed = 1;            ///< of what is drawn
};

struct Result {
    uint64_t states = 0;  ///< different ones
    uint64_t executions = 0;
    uint64_t completed = 0;  ///< executions that went to their end and were checked there
    bool exhausted = false;  ///< every state was reached that can be
    std::string violation;
    std::vector<std::string> trace;  ///< of the execution that violated a claim
};

/// Every schedule, every value that a load may see, every place to die: depth first, each state once.
Result exploreAll(const Model& model, const Limits& limits);

/// So many executions with choices drawn from the seed.
Result exploreSome(const Model& model, const Limits& limits);

}  // namespace model

#endif
