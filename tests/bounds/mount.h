#ifndef LINXIPC_TESTS_BOUNDS_MOUNT_H
#define LINXIPC_TESTS_BOUNDS_MOUNT_H

#include <sched.h>
#include <sys/mount.h>

#include <string>

/// Lets this process mount what nobody else sees. False where that is not allowed.
inline bool mayMountForItself() {
    if (unshare(CLONE_NEWNS) == -1 && unshare(CLONE_NEWUSER | CLONE_NEWNS) == -1) return false;
    return mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

/// Covers a directory by an empty file system in memory, with options such as "size=8m".
inline bool mountMemory(const std::string& path, const std::string& options) {
    return mount("tmpfs", path.c_str(), "tmpfs", 0, options.c_str()) == 0;
}

#endif
