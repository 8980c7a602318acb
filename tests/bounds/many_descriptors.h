#ifndef LINXIPC_TESTS_BOUNDS_MANY_DESCRIPTORS_H
#define LINXIPC_TESTS_BOUNDS_MANY_DESCRIPTORS_H

#include <sys/resource.h>

/// Allows this process as many descriptors as it may have, and returns their number.
inline rlim_t allowManyDescriptors() {
    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
    return limit.rlim_cur;
}

#endif
