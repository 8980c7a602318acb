#include "link/proxies/rules.h"

#include <algorithm>

#include "ipc/ReservedSignal.h"

namespace linx::link {
namespace {

bool matches(const std::string& pattern, const std::string& name) {
    if (pattern.empty() || pattern.back() != '*') return pattern == name;
    return name.compare(0, pattern.size() - 1, pattern, 0, pattern.size() - 1) == 0;
}

}  // namespace

bool Rules::mayHunt(const std::string& name) const {
    if (!transit && name.find('/') != std::string::npos) return false;
    return std::any_of(exports.begin(), exports.end(),
                       [&](const std::string& pattern) { return matches(pattern, name); });
}

bool Rules::maySend(uint32_t number) const {
    return allowControl || (number != e_ShutdownSignal && number != e_ProcessDiedSignal);
}

}  // namespace linx::link
