#ifndef LINXIPC_TESTS_HOST_ONE_PROCESSOR_H
#define LINXIPC_TESTS_HOST_ONE_PROCESSOR_H

#include <gtest/gtest.h>
#include <sched.h>

namespace linxtest {

/// Keeps this thread on one processor, where a receive yields instead of spinning.
class OneProcessor {
public:
    OneProcessor() {
        EXPECT_EQ(sched_getaffinity(0, sizeof before_, &before_), 0);
        cpu_set_t one;
        CPU_ZERO(&one);
        for (int processor = 0; processor < CPU_SETSIZE && CPU_COUNT(&one) == 0; ++processor) {
            if (CPU_ISSET(processor, &before_)) CPU_SET(processor, &one);
        }
        EXPECT_EQ(sched_setaffinity(0, sizeof one, &one), 0);
    }
    ~OneProcessor() { sched_setaffinity(0, sizeof before_, &before_); }
    OneProcessor(const OneProcessor&) = delete;
    OneProcessor& operator=(const OneProcessor&) = delete;

private:
    cpu_set_t before_;
};

}  // namespace linxtest

#endif
