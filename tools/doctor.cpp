#include <nlohmann/json.hpp>

#include "tools/failure.h"
#include "tools/findings.h"
#include "tools/look.h"
#include "tools/table.h"
#include "tools/text.h"
#include "tools/verbs.h"

namespace tools {

int doctor(const Options& options) {
    linx::inspect::Place place;
    openPlace(options, place);
    std::vector<Finding> findings = examine(place);
    for (const Finding& one : examineLinks(options, place)) findings.push_back(one);
    limit(findings, options);
    if (options.json) {
        nlohmann::ordered_json all = nlohmann::ordered_json::array();
        for (const Finding& one : findings) {
            all.push_back(
                {{"finding", one.finding}, {"subject", one.subject}, {"text", one.text}, {"remedy", one.remedy}});
        }
        printJson(all);
    } else {
        for (const Finding& one : findings) {
            printLine(red(one.finding) + ": " + bold(printable(one.subject)) + " " + printable(one.text));
            printLine("    " + printable(one.remedy));
        }
        if (findings.empty()) printLine("nothing found");
    }
    return findings.empty() ? done : refused;
}

}  // namespace tools
