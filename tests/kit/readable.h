#ifndef LINXIPC_TESTS_KIT_READABLE_H
#define LINXIPC_TESTS_KIT_READABLE_H

#include <poll.h>

#include <cerrno>

/// Whether there is something to read behind the descriptor, or comes within so many milliseconds.
inline bool isReadable(int descriptor, int milliseconds = 0) {
    pollfd readable = {descriptor, POLLIN, 0};
    int ready;
    do {
        ready = poll(&readable, 1, milliseconds);
    } while (ready == -1 && errno == EINTR);
    return ready == 1;
}

#endif
