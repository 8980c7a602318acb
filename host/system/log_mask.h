#ifndef LINXIPC_HOST_SYSTEM_LOG_MASK_H
#define LINXIPC_HOST_SYSTEM_LOG_MASK_H

#include <atomic>
#include <cstdint>

namespace linx {

/// The log mask that somebody outside of the process has chosen for it, instead of the environment's.
namespace log_mask {

constexpr uint32_t isChosen = 1u << 31;  ///< no bit of a mask
constexpr uint32_t bits = ~isChosen;

inline std::atomic<uint32_t> chosen{0};

/// Any thread may ask and choose. Relaxed: it publishes nothing else.
inline bool get(uint32_t& mask) {
    const uint32_t word = chosen.load(std::memory_order_relaxed);
    mask = word & bits;
    return (word & isChosen) != 0;
}
inline void choose(uint32_t mask) {
    chosen.store((mask & bits) | isChosen, std::memory_order_relaxed);
}

}  // namespace log_mask
}  // namespace linx

#endif
