#ifndef LINXIPC_HOST_ARENA_NUMBER_OF_H
#define LINXIPC_HOST_ARENA_NUMBER_OF_H

#include <cstdint>

namespace linx {

/// The bits of what a word of the arena may hold.
template <class T>
constexpr uint32_t numberOf(T value) {
    static_assert(sizeof(T) == sizeof(uint32_t), "as many as a word has");
    return static_cast<uint32_t>(value);
}

}  // namespace linx

#endif
