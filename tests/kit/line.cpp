#include "tests/kit/line.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include "tests/kit/readable.h"

Line::~Line() {
    close(descriptor_);
}

void Line::tell(uint32_t word) const {
    EXPECT_EQ(send(descriptor_, &word, sizeof word, MSG_NOSIGNAL), ssize_t{sizeof word}) << "nobody listens";
}

uint32_t Line::hear() const {
    uint32_t word = 0;
    if (!isReadable(descriptor_, static_cast<int>(patience))) {
        ADD_FAILURE() << "nothing was said";
    } else if (recv(descriptor_, &word, sizeof word, MSG_WAITALL) != ssize_t{sizeof word}) {
        ADD_FAILURE() << "the other end is gone";
    }
    return word;
}
