#ifndef LINXIPC_TESTS_PROCESSES_SUPPORT_WITNESS_H
#define LINXIPC_TESTS_PROCESSES_SUPPORT_WITNESS_H

#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <string>

/// Sees what is done to a file or directory, whatever name it is reached by.
class Witness {
public:
    Witness(const std::string& path, uint32_t events) : descriptor_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
        EXPECT_NE(-1, inotify_add_watch(descriptor_, path.c_str(), events)) << path;
    }
    ~Witness() { close(descriptor_); }
    Witness(const Witness&) = delete;
    Witness& operator=(const Witness&) = delete;

    bool sawSomething() const {
        alignas(inotify_event) char events[4096];
        return read(descriptor_, events, sizeof events) > 0;
    }

private:
    int descriptor_;
};

#endif
