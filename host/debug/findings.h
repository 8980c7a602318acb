#ifndef LINXIPC_HOST_DEBUG_FINDINGS_H
#define LINXIPC_HOST_DEBUG_FINDINGS_H

#include <string>
#include <vector>

#include "host/arena/number_of.h"

namespace linx {
namespace debug {

/// Where the blocks of an arena are: blocks = central + atHome + inStacks + owned + lost.
struct Census {
    uint32_t blocks = 0;
    uint32_t central = 0;   ///< free, in the central lists
    uint32_t atHome = 0;    ///< free, at an endpoint that is open
    uint32_t inStacks = 0;  ///< in flight, in a mailbox or a returned stack
    uint32_t owned = 0;     ///< held by an endpoint that is open, or queued for it
    uint32_t lost = 0;      ///< nowhere: nobody will find them again
};

/// What a look at an arena has found.
struct Findings {
    /// The first invariant that does not hold, and where; empty when all do.
    std::string broken;
    /// The endpoints that count more lines than they are home to, as deaths leave them.
    std::vector<std::string> smallerShares;
    /// Of a full look.
    Census census;

    /// The first of all that is not as it should be where nobody has died; empty when everything is.
    std::string first() const { return broken.empty() && !smallerShares.empty() ? smallerShares.front() : broken; }
};

/// What a finding is about: kind and number.
struct Subject {
    template <class Number>
    Subject(const char* itsKind, Number itsNumber) : kind(itsKind), number(numberOf(itsNumber)) {}

    const char* kind;
    uint32_t number;

    std::string text() const { return std::string(kind) + ' ' + std::to_string(number); }
};

/// Notes that an invariant, in the words of layout.h, does not hold there.
inline void note(Findings& findings, const std::string& where, const char* invariant,
                 const std::string& details = {}) {
    if (!findings.broken.empty()) return;
    findings.broken = where + ": " + invariant + (details.empty() ? "" : " (" + details + ")");
}
inline void note(Findings& findings, const Subject& where, const char* invariant, const std::string& details = {}) {
    note(findings, where.text(), invariant, details);
}

/// Notes an equation that does not hold.
template <class Where, class Number>
void expectEqual(Findings& findings, const Where& where, const char* equation, Number left, Number right) {
    if (left == right) return;
    note(findings, where, equation, std::to_string(numberOf(left)) + " and " + std::to_string(numberOf(right)));
}

}  // namespace debug
}  // namespace linx

#endif
