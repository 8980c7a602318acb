#ifndef LINXIPC_TESTS_KIT_FILE_MEMORY_H
#define LINXIPC_TESTS_KIT_FILE_MEMORY_H

#include <cstdint>
#include <functional>

/// What file_memory.cpp does in the place of the kernel's giving memory to parts of files. For programs of the
/// objects of host/, not of the shared library.
namespace linxtest {

/// Done before a part of a file is given memory. Returns 0, or the errno value with which that fails.
extern std::function<int(int64_t offset, int64_t bytes)> atReserve;

/// While it lives, no domain that is made gets memory for more slots than these, as on a full file system: those of
/// ended endpoints are used again soon.
class FewSlots {
public:
    /// Memory comes in pages: the count is rounded up to an odd number.
    explicit FewSlots(uint32_t count);
    ~FewSlots();
    FewSlots(const FewSlots&) = delete;
    FewSlots& operator=(const FewSlots&) = delete;

private:
    const int64_t before_;
};

}  // namespace linxtest

#endif
