#include "bench/report/json.h"

#include <fstream>
#include <nlohmann/json.hpp>

#include "bench/harness/check.h"

namespace bench {

namespace {

nlohmann::ordered_json jsonOf(const Record& record) {
    nlohmann::ordered_json figures;
    for (const auto& [name, spread] : record.spreads) {
        figures[name] = {{"median", spread.median}, {"runs", spread.runs}};
    }
    return {{"scenario", record.scenario}, {"peer", record.peer},        {"cores", nameOf(record.placement)},
            {"payload", record.payload},   {"count", record.population}, {"figures", figures}};
}

Placement placementOf(const std::string& name) {
    for (const Placement placement : {Placement::apart, Placement::both, Placement::one}) {
        if (nameOf(placement) == name) return placement;
    }
    throw Failure("no placement is called " + name);
}

Record recordOf(const nlohmann::json& json) {
    Record record = {json.at("scenario"), json.at("peer"),  placementOf(json.at("cores")),
                     json.at("payload"),  json.at("count"), {}};
    for (const auto& [name, figure] : json.at("figures").items()) {
        record.spreads[name] = spreadOf(figure.at("runs").get<std::vector<double>>());
    }
    return record;
}

}  // namespace

Records readJson(const std::string& file) {
    std::ifstream in(file);
    Records records;
    try {
        const nlohmann::json all = nlohmann::json::parse(in);
        for (const nlohmann::json& json : all.at("records")) records.push_back(recordOf(json));
    } catch (const nlohmann::json::exception& error) {
        throw Failure(file + ": " + error.what());
    }
    return records;
}

void writeJson(const std::string& file, const Machine& machine, const Records& records) {
    const nlohmann::ordered_json about = {{"processor", machine.processor}, {"cores", machine.cores},
                                          {"kernel", machine.kernel},       {"compiler", machine.compiler},
                                          {"date", machine.date},           {"load", machine.load}};
    std::ofstream out(file);
    out << "{\"machine\": " << about.dump() << ",\n\"records\": [";
    for (const Record& record : records) {  // a line each, so that they can be searched
        out << (&record == &records.front() ? "\n" : ",\n") << jsonOf(record).dump();
    }
    out << "\n]}\n" << std::flush;
    check(out.good(), file);
}

}  // namespace bench
