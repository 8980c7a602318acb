#include <algorithm>
#include <nlohmann/json.hpp>

#include "tools/failure.h"
#include "tools/link_statuses.h"
#include "tools/look.h"
#include "tools/table.h"
#include "tools/text.h"
#include "tools/verbs.h"

namespace tools {
namespace {

using linx::link::Status;
using Json = nlohmann::ordered_json;

/// One that says nothing is down for all that can be seen.
Status statusOf(const LinkStatus& link) {
    if (link.status) return *link.status;
    Status status;
    status.reason = "the link does not answer";
    return status;
}

Json orNull(const std::string& text) {
    return text.empty() ? Json(nullptr) : Json(text);
}

Json toJson(const LinkStatus& link) {
    const Status status = statusOf(link);
    const bool isUp = status.state == "up";
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const auto since =
        std::chrono::duration_cast<std::chrono::nanoseconds>(now) - std::chrono::seconds(status.seconds);
    Json json;
    json["name"] = link.name;
    json["peer"] = orNull(status.peer);
    json["state"] = status.state;
    json["since"] = link.status ? Json(worldTime(static_cast<uint64_t>(since.count()))) : Json(nullptr);
    json["reason"] = orNull(status.reason);
    json["rtt_microseconds"] = status.roundTrip == 0 ? Json(nullptr) : Json(status.roundTrip);
    json["byte_order"] = orNull(status.byteOrder);
    json["word_size"] = isUp ? Json(status.wordBits) : Json(nullptr);
    json["window_bytes"] = status.window;
    json["in_flight_bytes"] = status.inFlight;
    json["waiting_bytes"] = status.waiting;
    json["waiting"] = Json::array();
    for (const Status::Destination& one : status.destinations) {
        json["waiting"].push_back(
            {{"name", one.name}, {"signals", one.signals}, {"bytes", one.bytes}, {"credit_bytes", one.credit}});
    }
    json["denied"] = status.denied;
    json["refused"] = Json::object();
    for (const auto& [reason, count] : status.refused) json["refused"][reason] = count;
    json["lost"] = status.lost;
    return json;
}

std::string roundTripOf(const Status& status) {
    if (status.roundTrip == 0) return "-";
    char text[32];
    std::snprintf(text, sizeof text, "%.3f ms", static_cast<double>(status.roundTrip) / 1000);
    return text;
}

uint64_t sumOf(const std::map<std::string, uint64_t>& counts) {
    uint64_t sum = 0;
    for (const auto& [reason, count] : counts) sum += count;
    return sum;
}

void printTable(const std::vector<LinkStatus>& links) {
    constexpr Table::Align right = Table::Align::right;
    Table table({{"NAME"},
                 {"STATE"},
                 {"SINCE", right},
                 {"ROUND TRIP", right},
                 {"PEER IS"},
                 {"IN FLIGHT", right},
                 {"WAITING", right},
                 {"REFUSED", right},
                 {"LOST", right},
                 {"REASON"}});
    for (const LinkStatus& link : links) {
        const Status status = statusOf(link);
        const bool isUp = status.state == "up";
        table.add({printable(link.name), status.state,
                   link.status ? humanSeconds(static_cast<double>(status.seconds)) : "-", roundTripOf(status),
                   isUp ? std::to_string(status.wordBits) + " bits, " + printable(status.byteOrder) : "-",
                   isUp ? humanBytes(status.inFlight) + " of " + humanBytes(status.window) : "-",
                   humanBytes(status.waiting), std::to_string(sumOf(status.refused)), std::to_string(status.lost),
                   status.reason.empty() ? "-" : printable(status.reason)},
                  !isUp);
    }
    table.print();
}

/// What the columns have no room for.
void printDetails(const LinkStatus& link) {
    const Status status = statusOf(link);
    if (!status.peer.empty()) printLine("peer      " + printable(status.peer));
    for (const auto& [reason, count] : status.refused) {
        printLine("refused   " + std::to_string(count) + ": " + printable(reason));
    }
    for (const std::string& name : status.denied) printLine("denied    " + printable(name));
    for (const Status::Destination& one : status.destinations) {
        printLine("waiting   " + printable(one.name) + ": " + std::to_string(one.signals) + " signals, " +
                  humanBytes(one.bytes) + ", credit for " + humanBytes(one.credit));
    }
}

}  // namespace

int links(const Options& options, const std::string& name) {
    requireDomain(options);
    auto endpoints = endpointsThere(options);
    endpoints.erase(
        std::remove_if(endpoints.begin(), endpoints.end(),
                       [&](const linx::inspect::Endpoint& one) { return !name.empty() && one.name != name; }),
        endpoints.end());
    std::vector<LinkStatus> all = linkStatuses(options, endpoints);
    if (!name.empty() && all.empty()) throw Failure(noSuchName, "no link is called '" + printable(name) + "'");
    limit(all, options);
    if (options.json) {
        Json json = Json::array();
        for (const LinkStatus& link : all) json.push_back(toJson(link));
        printJson(json);
        return done;
    }
    printTable(all);
    if (!name.empty()) printDetails(all.front());
    return done;
}

}  // namespace tools
