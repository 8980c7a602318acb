#ifndef LINXIPC_BENCH_HARNESS_BARRIER_H
#define LINXIPC_BENCH_HARNESS_BARRIER_H

#include <pthread.h>

#include "bench/harness/shared.h"

namespace bench {

/// Where the processes of a run wait for each other. Made before they are forked.
class Barrier {
public:
    explicit Barrier(unsigned processes) {
        pthread_barrierattr_t attributes;
        pthread_barrierattr_init(&attributes);
        pthread_barrierattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
        expect(pthread_barrier_init(&*barrier_, &attributes, processes) == 0, "no barrier");
        pthread_barrierattr_destroy(&attributes);
    }

    void wait() const { pthread_barrier_wait(&*barrier_); }

private:
    Shared<pthread_barrier_t> barrier_;
};

}  // namespace bench

#endif
