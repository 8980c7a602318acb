#ifndef LINXIPC_TOOLS_FINDINGS_H
#define LINXIPC_TOOLS_FINDINGS_H

#include <string>
#include <vector>

#include "inspect/place.h"
#include "tools/options.h"

namespace tools {

/// Something that is wrong with a domain, and what to do about it.
struct Finding {
    std::string finding;  ///< one word for its kind
    std::string subject;
    std::string text;
    std::string remedy;
};

/// Everything that is wrong with the domain. What may be on its way is only wrong where it is still there a second
/// later.
std::vector<Finding> examine(const linx::inspect::Place& place);

/// What is wrong with the links of a domain, as far as these tell. None where they may not be asked.
std::vector<Finding> examineLinks(const Options& options, const linx::inspect::Place& place);

}  // namespace tools

#endif
