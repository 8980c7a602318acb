// What the dispatcher, its workers and their clients agree on.
#ifndef GUIDE_JOBS_H
#define GUIDE_JOBS_H

#include <cstdint>

constexpr unsigned available = 2400;  // from a worker to the dispatcher, without payload
constexpr unsigned job = 2401;        // Job, to the dispatcher, which relays it to a worker
constexpr unsigned jobDone = 2402;    // JobDone, from the worker to the client

struct Job {
    std::uint32_t number;
    char client[32];
};

struct JobDone {
    std::uint32_t number;
};

#endif
