#include "host/debug/validate.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "host/debug/at_rest.h"
#include "host/debug/guarded.h"
#include "host/system/environment.h"

namespace linx {
namespace debug {

Findings validate(const Arena& arena, Grade grade) {
    Findings findings;
    checkGuarded(arena, findings);
    if (grade == Grade::full) checkAtRest(arena, findings);
    return findings;
}

void requireOrder(const Arena& arena) {
    // A check takes time in proportion to the domain, and large domains release the lock often.
    constexpr uint32_t everyTime = 64;
    static std::atomic<uint32_t> leavings{0};
    const uint32_t leaving = leavings.fetch_add(1, std::memory_order_relaxed);
    if (leaving >= everyTime && leaving % everyTime != 0) return;
    if (numberFromEnvironment("LINX_VALIDATE", 0, 1, 1) == 0) return;
    const int keptErrno = errno;
    const Findings findings = validate(arena, Grade::quick);
    if (!findings.broken.empty()) {
        std::fprintf(stderr, "linxhost: the arena is not in order: %s\n", findings.broken.c_str());
        std::abort();
    }
    errno = keptErrno;
}

}  // namespace debug
}  // namespace linx
