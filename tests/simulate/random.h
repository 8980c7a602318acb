#ifndef LINXIPC_TESTS_SIMULATE_RANDOM_H
#define LINXIPC_TESTS_SIMULATE_RANDOM_H

#include <cstddef>
#include <cstdint>

namespace simulate {

/// Numbers from a seed, the same on every machine.
class Random {
public:
    explicit Random(uint64_t seed) : state_(seed) {}

    uint64_t next() {
        uint64_t value = state_ += 0x9E3779B97F4A7C15;
        value = (value ^ value >> 30) * 0xBF58476D1CE4E5B9;
        value = (value ^ value >> 27) * 0x94D049BB133111EB;
        return value ^ value >> 31;
    }
    uint64_t below(uint64_t bound) { return bound == 0 ? 0 : next() % bound; }
    /// Of so many things, the number of one.
    size_t indexOf(size_t count) { return static_cast<size_t>(below(count)); }
    uint64_t between(uint64_t least, uint64_t most) { return least + below(most - least + 1); }
    /// True `parts` times in a million.
    bool chance(uint64_t parts) { return parts != 0 && below(1000000) < parts; }

private:
    uint64_t state_;
};

}  // namespace simulate

#endif
