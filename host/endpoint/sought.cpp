#include "host/endpoint/sought.h"

#include <algorithm>
#include <cstring>

#include "host/arena/hunt_table.h"

namespace linx {
namespace {

/// The name that a hunt is for, whatever others have left in it.
Name nameIn(const Hunt& hunt) {
    char text[maxNameLength + 1];
    const uint32_t length = std::min(hunt.nameLength.loadRelaxed(), maxNameLength);
    for (uint32_t i = 0; i < (length + 3) / 4; ++i) {
        const uint32_t word = hunt.name[i].loadRelaxed();  // [lock]
        std::memcpy(text + 4 * i, &word, sizeof word);
    }
    return {text, length};
}

}  // namespace

const char* Sought::rest() const {
    return restBehindLink(name);
}

const char* restBehindLink(const Name& name) {
    const char* const slash = static_cast<const char*>(std::memchr(name.text(), '/', name.length()));
    const bool isBetween = slash != nullptr && slash != name.text() && slash[1] != '\0';
    return isBetween ? slash + 1 : nullptr;
}

Spid findLink(const Arena& arena, const Name& name) {
    const char* const rest = restBehindLink(name);
    if (rest == nullptr) return Spid::none;
    const Spid link = findName(arena, {name.text(), static_cast<uint32_t>(rest - 1 - name.text())});
    if (link == Spid::none) return Spid::none;
    const uint32_t options = arena.slot(indexOf(link)).options.loadRelaxed();  // [opened], as its name
    return (options & LINX_OPEN_LINK) != 0 ? link : Spid::none;
}

std::vector<Sought> soughtBehind(const Arena& arena, const Name& link) {
    std::vector<Sought> all;
    forEachHunt(arena, [&](const Hunt& hunt) {
        const Name name = nameIn(hunt);
        const char* const rest = restBehindLink(name);
        const bool isBehind = rest != nullptr && static_cast<uint32_t>(rest - 1 - name.text()) == link.length() &&
                              std::memcmp(name.text(), link.text(), link.length()) == 0;
        if (isBehind) all.push_back({spidOf(hunt.hunter.loadRelaxed()), name});
    });
    return all;
}

}  // namespace linx
