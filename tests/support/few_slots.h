#ifndef LINXIPC_TESTS_SUPPORT_FEW_SLOTS_H
#define LINXIPC_TESTS_SUPPORT_FEW_SLOTS_H

#include <cstdint>

namespace linxtest {

/// While it lives, no domain that is made gets memory for more slots than these, as on a full file system: those of
/// ended endpoints are used again soon. Needs few_slots.cpp in the program, and the objects of host/ and not the
/// shared library.
class FewSlots {
public:
    /// Memory comes in pages, of which the first holds 7 slots and each of the others 8: the count is rounded up.
    explicit FewSlots(uint32_t count);
    ~FewSlots();
    FewSlots(const FewSlots&) = delete;
    FewSlots& operator=(const FewSlots&) = delete;

private:
    const uint64_t before_;
};

}  // namespace linxtest

#endif
