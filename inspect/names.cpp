#include "inspect/names.h"

#include <unistd.h>

#include "host/arena/layout.h"
#include "host/arena/name_table.h"
#include "host/system/uninterrupted.h"

namespace linx {
namespace inspect {
namespace {

bool read(int file, size_t offset, void* to, size_t bytes) {
    const ssize_t got = uninterrupted([&] { return pread(file, to, bytes, static_cast<off_t>(offset)); });
    return got == static_cast<ssize_t>(bytes);
}

}  // namespace

std::optional<std::string> nameOf(int file, Spid spid) {
    if (!isSpid(spid)) return std::nullopt;
    const size_t offset = slotsOffset + numberOf(indexOf(spid)) * sizeof(Slot);
    Slot slot;
    LifeWord life;
    // The slot's next user changes the life before the name, so an unchanged life vouches for what was read.
    if (!read(file, offset, static_cast<void*>(&slot), sizeof slot) ||
        !read(file, offset + offsetof(Slot, life), &life, sizeof life)) {
        return std::nullopt;
    }
    if (spidOf(slot.life.loadRelaxed()) != spid || spidOf(life) != spid) return std::nullopt;
    return Name::read(slot.name, slot.nameLength.loadRelaxed()).text();
}

}  // namespace inspect
}  // namespace linx
