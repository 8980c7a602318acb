#ifndef LINXIPC_MODELS_MACHINE_HASH_H
#define LINXIPC_MODELS_MACHINE_HASH_H

#include <cstdint>

namespace model {

/// A 64-bit hash of a sequence of words.
class Hash {
public:
    explicit Hash(uint64_t seed = 0) : state_(seed ^ 0x9e3779b97f4a7c15u) {}
    void add(uint64_t word) {
        state_ = (state_ ^ word) * 0xff51afd7ed558ccdu;
        state_ ^= state_ >> 32;
    }
    uint64_t value() const { return state_; }

private:
    uint64_t state_;
};

}  // namespace model

#endif
