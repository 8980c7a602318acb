#include "tests/kit/line.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

Line::~Line() {
    close(descriptor_);
}

void Line::tell(uint32_t word) const {
    EXPECT_EQ(send(descriptor_, &word, sizeof word, MSG_NOSIGNAL), ssize_t{sizeof word}) << "nobody listens";
}

uint32_t Line::hear() const {
    pollfd readable = {descriptor_, POLLIN, 0};
    int ready;
    do {
        ready = poll(&readable, 1, static_cast<int>(patience));
    } while (ready == -1 && errno == EINTR);
    uint32_t word = 0;
    if (ready != 1) {
        ADD_FAILURE() << "nothing was said";
    } else if (recv(descriptor_, &word, sizeof word, MSG_WAITALL) != ssize_t{sizeof word}) {
        ADD_FAILURE() << "the other end is gone";
    }
    return word;
}
