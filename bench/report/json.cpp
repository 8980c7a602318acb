#include "bench/report/json.h"

#include <fstream>
#include <nlohmann/json.hpp>

#include "bench/harness/check.h"

namespace bench {

namespace {

nlohmann::ordered_json JsonOf(const Record& record) {
    nlohmann::ordered_json figures;
    for (const auto& [name, spread] : record.spreads) {
        figures[name] = {{"median", spread.median}, {"least", spread.least}, {"most", spread.most}};
    }
    return {{"scenario", record.scenario}, {"peer", record.peer},        {"cores", NameOf(record.placement)},
            {"payload", record.payload},   {"count", record.population}, {"figures", figures}};
}

}  // namespace

void WriteJson(const std::string& file, const Machine& machine, const Records& records) {
    nlohmann::ordered_json all;
    all["machine"] = {{"processor", machine.processor},
                      {"cores", machine.cores},
                      {"kernel", machine.kernel},
                      {"compiler", machine.compiler},
                      {"date", machine.date}};
    all["records"] = nlohmann::ordered_json::array();
    for (const Record& record : records) all["records"].push_back(JsonOf(record));
    std::ofstream out(file);
    out << all.dump(1) << '\n';
    Check(out.good(), file);
}

}  // namespace bench
