#ifndef LINXIPC_BENCH_HARNESS_CHECK_H
#define LINXIPC_BENCH_HARNESS_CHECK_H

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

namespace bench {

/// A measurement that cannot go on. Its text says why.
struct Failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Throws a Failure, with what errno says, unless `fine`.
inline void check(bool fine, const std::string& what) {
    if (!fine) throw Failure(what + (errno != 0 ? std::string(": ") + std::strerror(errno) : ""));
}

/// The same for what errno does not explain.
inline void expect(bool fine, const std::string& what) {
    if (!fine) throw Failure(what);
}

}  // namespace bench

#endif
