#ifndef LINXIPC_TESTS_KIT_WITNESS_H
#define LINXIPC_TESTS_KIT_WITNESS_H

#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <string>

namespace linxtest {

/// Sees what is done to a file or directory, whatever name it is reached by.
class Witness {
public:
    Witness(const std::string& path, uint32_t events) : descriptor_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
        EXPECT_NE(inotify_add_watch(descriptor_, path.c_str(), events), -1) << path;
    }
    ~Witness() { close(descriptor_); }
    Witness(const Witness&) = delete;
    Witness& operator=(const Witness&) = delete;

    bool sawSomething() const { return count() != 0; }

    /// How much was done since the last time; the same again right after counts once.
    size_t count() const {
        alignas(inotify_event) char events[4096];
        size_t count = 0;
        for (ssize_t got; (got = read(descriptor_, events, sizeof events)) > 0;) {
            for (ssize_t at = 0; at < got; ++count) {
                at += ssize_t{sizeof(inotify_event)} + reinterpret_cast<inotify_event*>(events + at)->len;
            }
        }
        return count;
    }

private:
    int descriptor_;
};

}  // namespace linxtest

#endif
