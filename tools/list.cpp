#include <algorithm>
#include <nlohmann/json.hpp>

#include "tools/failure.h"
#include "tools/look.h"
#include "tools/table.h"
#include "tools/text.h"
#include "tools/verbs.h"

namespace tools {

using linx::inspect::Endpoint;
using linx::inspect::State;

namespace {

nlohmann::ordered_json toJson(const Endpoint& endpoint) {
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
    json["held"] = endpoint.account.held.bytes;
    return json;
}

std::vector<std::string> toRow(const Endpoint& endpoint) {
    const auto& process = endpoint.process;
    return {printable(endpoint.name),
            hexadecimal(endpoint.spid),
            process ? std::to_string(process->pid) : "-",
            process ? printable(process->name) : "-",
            process ? userName(process->user) : "-",
            wordFor(endpoint.state),
            std::to_string(endpoint.account.queued.signals),
            std::to_string(endpoint.deepest),
            humanBytes(endpoint.account.held.bytes)};
}

}  // namespace

int list(const Options& options, const ListOptions& what) {
    std::vector<Endpoint> endpoints = endpointsThere(options);
    if (!what.all) {
        const auto hasEnded = [](const Endpoint& e) { return e.state == State::ended; };
        endpoints.erase(std::remove_if(endpoints.begin(), endpoints.end(), hasEnded), endpoints.end());
    }
    limit(endpoints, options);
    if (options.json) {
        printJson(endpoints, toJson);
        return done;
    }
    constexpr Table::Align right = Table::Align::right;
    Table table({{"NAME"},
                 {"SPID"},
                 {"PID", right},
                 {"PROCESS"},
                 {"USER"},
                 {"STATE"},
                 {"QUEUED", right},
                 {"DEEPEST", right},
                 {"HELD", right}});
    for (const Endpoint& endpoint : endpoints) table.add(toRow(endpoint), endpoint.state == State::dead);
    table.print();
    return done;
}

}  // namespace tools
