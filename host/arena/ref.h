#ifndef LINXIPC_HOST_ARENA_REF_H
#define LINXIPC_HOST_ARENA_REF_H

#include "host/arena/number_of.h"
#include "host/arena/size_classes.h"

namespace linx {

/// A block, by the number of its first line in the file. The first lines are the header.
enum class Ref : uint32_t { none = 0 };

constexpr uint32_t refBits = 29;  ///< the arena has no more lines

constexpr Ref operator+(Ref ref, uint32_t lines) {
    return Ref{numberOf(ref) + lines};
}
constexpr uint32_t pageOf(Ref ref) {
    return numberOf(ref) / linesPerPage;  // of the file
}
constexpr uint32_t lineInPage(Ref ref) {
    return numberOf(ref) % linesPerPage;
}

}  // namespace linx

#endif
