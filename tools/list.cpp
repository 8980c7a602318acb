#include <algorithm>
#include <nlohmann/json.hpp>
#include <unordered_map>

#include "inspect/waits.h"
#include "tools/failure.h"
#include "tools/look.h"
#include "tools/tables.h"
#include "tools/text.h"
#include "tools/verbs.h"

namespace tools {

using linx::inspect::Endpoint;
using linx::inspect::State;

namespace {

/// The name of the endpoint that it waits for; empty where it waits for none.
using WaitsFor = std::unordered_map<linx::Spid, std::string>;

WaitsFor waitsForOf(const linx::Arena& arena, const std::vector<Endpoint>& endpoints) {
    WaitsFor names;
    for (const linx::inspect::Edge& edge : linx::inspect::edgesOf(endpoints))
        names[edge.from] = nameIn(arena, edge.to);
    return names;
}

nlohmann::ordered_json toJson(const Endpoint& endpoint, const WaitsFor& waitsFor) {
    nlohmann::ordered_json json;
    json["name"] = endpoint.name;
    json["spid"] = linx::numberOf(endpoint.spid);
    json["pid"] = nullptr;
    json["process"] = nullptr;
    json["user"] = nullptr;
    if (endpoint.process) {
        json["pid"] = endpoint.process->pid;
        json["process"] = endpoint.process->name;
        json["user"] = userName(endpoint.process->user);
    }
    json["state"] = wordFor(endpoint.state);
    json["queued"] = endpoint.account.queued.signals;
    json["deepest"] = endpoint.deepest;
    json["in"] = endpoint.traffic.signalsIn;
    json["out"] = endpoint.traffic.signalsOut;
    json["held"] = endpoint.account.held.bytes;
    const auto awaited = waitsFor.find(endpoint.spid);
    json["waits_for"] = nullptr;
    if (awaited != waitsFor.end()) json["waits_for"] = awaited->second;
    return json;
}

std::vector<std::string> toRow(const Endpoint& endpoint, const WaitsFor& waitsFor) {
    const auto& process = endpoint.process;
    const auto awaited = waitsFor.find(endpoint.spid);
    return {printable(endpoint.name),
            hexadecimal(endpoint.spid),
            process ? std::to_string(process->pid) : "-",
            process ? printable(process->name) : "-",
            process ? userName(process->user) : "-",
            wordFor(endpoint.state),
            std::to_string(endpoint.account.queued.signals),
            std::to_string(endpoint.deepest),
            std::to_string(endpoint.traffic.signalsIn),
            std::to_string(endpoint.traffic.signalsOut),
            humanBytes(endpoint.account.held.bytes),
            awaited == waitsFor.end() ? "-" : printable(awaited->second)};
}

}  // namespace

Table listTable(const linx::Arena& arena, const std::vector<Endpoint>& endpoints) {
    const WaitsFor waitsFor = waitsForOf(arena, endpoints);
    constexpr Table::Align left = Table::Align::left, right = Table::Align::right;
    Table table({{"NAME"},
                 {"SPID", left, false},
                 {"PID", right},
                 {"PROCESS", left, false},
                 {"USER", left, false},
                 {"STATE"},
                 {"QUEUED", right},
                 {"DEEPEST", right, false},
                 {"IN", right},
                 {"OUT", right},
                 {"HELD", right},
                 {"WAITS-FOR"}});
    for (const Endpoint& endpoint : endpoints) table.add(toRow(endpoint, waitsFor), endpoint.state == State::dead);
    return table;
}

int list(const Options& options, const ListOptions& what) {
    linx::inspect::Place place;
    openPlace(options, place);
    const auto snapshot = snapshotOf(place, linx::inspect::Snapshot::Events::leftOut);
    std::vector<Endpoint> endpoints = linx::inspect::endpointsOf(snapshot->arena(), place);
    if (!what.all) {
        const auto hasEnded = [](const Endpoint& e) { return e.state == State::ended; };
        endpoints.erase(std::remove_if(endpoints.begin(), endpoints.end(), hasEnded), endpoints.end());
    }
    limit(endpoints, options);
    if (!options.json) {
        listTable(snapshot->arena(), endpoints).print();
        return done;
    }
    const WaitsFor waitsFor = waitsForOf(snapshot->arena(), endpoints);
    nlohmann::ordered_json all = nlohmann::ordered_json::array();
    for (const Endpoint& endpoint : endpoints) all.push_back(toJson(endpoint, waitsFor));
    printJson(all);
    return done;
}

}  // namespace tools
