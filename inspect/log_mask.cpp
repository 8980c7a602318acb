#include "inspect/log_mask.h"

#include <cerrno>
#include <cstddef>

#include "host/arena/arena_file.h"
#include "host/arena/layout.h"
#include "host/system/uninterrupted.h"

namespace linx {
namespace inspect {
namespace {

off_t offsetIn(Spid spid, size_t field) {
    return static_cast<off_t>(slotsOffset + size_t{numberOf(indexOf(spid))} * sizeof(Slot) + field);
}

}  // namespace

bool setLogMask(const Place& place, Spid spid, uint32_t mask) {
    const ScopedDescriptor file(openArenaFile(place.directory()));
    if (file.get() == -1 || checkArenaFile(file.get()) == 0) return false;
    uint32_t life = 0;
    // By calls, not by a mapping: what is written is one word, and the kernel does that whole.
    const auto lifeAt = offsetIn(spid, offsetof(Slot, life));
    if (uninterrupted([&] { return pread(file.get(), &life, sizeof life, lifeAt); }) != sizeof life) return false;
    if (LifeWord{life} != openAs(spid)) {
        errno = ESRCH;
        return false;
    }
    const auto maskAt = offsetIn(spid, offsetof(Slot, logMask));
    return uninterrupted([&] { return pwrite(file.get(), &mask, sizeof mask, maskAt); }) == sizeof mask;
}

}  // namespace inspect
}  // namespace linx
