#ifndef LINXIPC_TESTS_KIT_UNANNOUNCED_FORK_H
#define LINXIPC_TESTS_KIT_UNANNOUNCED_FORK_H

#include <dlfcn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstddef>

/// Forks that no fork handler is told of, and whether their children can be told from their parents here.
namespace linxtest {

using Fork = pid_t (*)();

/// A fork that calls no handlers; null where the C library has none.
inline Fork unannouncedFork() {
    return reinterpret_cast<Fork>(dlsym(RTLD_DEFAULT, "_Fork"));
}

/// How a child has ended, as waitpid() tells it.
inline int statusOf(pid_t child) {
    int status = -1;
    waitpid(child, &status, 0);
    return status;
}

/// Whether pages that are to be empty in a child are so. Not every emulator passes that wish on.
inline bool areWipedPagesWiped() {
    const auto bytes = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    void* page = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    char& value = *static_cast<char*>(page);
    value = 1;
    bool isWiped = false;
    if (madvise(page, bytes, MADV_WIPEONFORK) == 0) {
        const pid_t child = fork();
        if (child == 0) _exit(value);
        isWiped = statusOf(child) == 0;
    }
    munmap(page, bytes);
    return isWiped;
}

/// Why no test can make such children and expect the platform to know them; null where one can.
inline const char* reasonAgainstUnannouncedForks() {
    if (unannouncedFork() == nullptr) return "no such fork here";
    if (!areWipedPagesWiped()) return "such children cannot be told from their parents here";
    return nullptr;
}

}  // namespace linxtest

#endif
