#ifndef LINXIPC_TESTS_KIT_LINE_H
#define LINXIPC_TESTS_KIT_LINE_H

#include <cstdint>

#include "tests/kit/in_time.h"

/// One end of a line of words between a test and its child, outside of what is tested.
class Line {
public:
    explicit Line(int descriptor) : descriptor_(descriptor) {}
    ~Line();
    Line(const Line&) = delete;
    Line& operator=(const Line&) = delete;

    void tell(uint32_t word = 0) const;

    /// Waits for the next word. The test fails when the other end is gone or says nothing for too long.
    uint32_t hear() const;

    int descriptor() const { return descriptor_; }

private:
    int descriptor_;
};

#endif
