#include "inspect/record.h"

#include <cstring>
#include <nlohmann/json.hpp>

#include "host/system/clock.h"
#include "tools/failure.h"
#include "tools/look.h"
#include "tools/tables.h"
#include "tools/text.h"
#include "tools/verbs.h"

namespace tools {

using linx::EventKind;
using linx::inspect::Recorded;
using linx::inspect::wordFor;

namespace {

bool hasSignal(EventKind kind) {
    return kind == EventKind::sent || kind == EventKind::received || kind == EventKind::refused;
}

bool hasPeer(const Recorded& event) {
    return (hasSignal(event.kind) || event.kind == EventKind::peerDied) && event.peer != linx::Spid::none;
}

nlohmann::ordered_json toJson(const Recorded& event, const linx::Arena& arena) {
    nlohmann::ordered_json json;
    json["endpoint"] = nameIn(arena, event.endpoint);
    json["count"] = event.count;
    json["kind"] = wordFor(event.kind);
    json["number"] = hasSignal(event.kind) ? nlohmann::ordered_json(event.number) : nullptr;
    json["size"] = hasSignal(event.kind) ? nlohmann::ordered_json(event.size) : nullptr;
    json["peer"] = hasPeer(event) ? nlohmann::ordered_json(nameIn(arena, event.peer)) : nullptr;
    return json;
}

/// What it was about.
std::string detailOf(const Recorded& event) {
    switch (event.kind) {
        case EventKind::refused:
            return std::strerror(static_cast<int>(event.reason));
        case EventKind::slept:
            if (event.size == 0) return "for any signal";
            return "for " + std::to_string(event.number) +
                   (event.size > 1 ? " and " + std::to_string(event.size - 1) + " more" : "");
        default:
            return "";
    }
}

std::vector<std::string> toRow(const Recorded& event, const linx::Arena& arena) {
    const bool isSignal = hasSignal(event.kind);
    return {event.time == 0 ? "" : humanSeconds(secondsSince(event.time)) + " ago",
            printable(nameIn(arena, event.endpoint)),
            std::to_string(event.count),
            wordFor(event.kind),
            isSignal ? std::to_string(event.number) : "",
            isSignal ? std::to_string(event.size) : "",
            hasPeer(event) ? printable(nameIn(arena, event.peer)) : "",
            detailOf(event)};
}

}  // namespace

Table recordTable(const linx::Arena& arena, const std::vector<Recorded>& events) {
    constexpr Table::Align right = Table::Align::right;
    Table table({{"TIME", right},
                 {"ENDPOINT"},
                 {"COUNT", right},
                 {"EVENT"},
                 {"NUMBER", right},
                 {"SIZE", right},
                 {"PEER"},
                 {"DETAIL"}});
    for (const Recorded& event : events) {
        table.add(toRow(event, arena), event.kind == EventKind::refused || event.kind == EventKind::peerDied);
    }
    return table;
}

int record(const Options& options, const std::vector<std::string>& names) {
    linx::inspect::Place place;
    openPlace(options, place);
    const auto snapshot = snapshotOf(place);
    const linx::Arena& arena = snapshot->arena();
    const auto endpoints = linx::inspect::endpointsOf(arena, place);
    requireNames(endpoints, names);
    std::vector<Recorded> events = linx::inspect::merge(recordsOf(arena, endpoints, names, firstTimeFor(options)));
    if (options.count && events.size() > *options.count) events.erase(events.begin(), events.end() - *options.count);
    if (options.json) {
        for (const Recorded& event : events) printJson(toJson(event, arena));
        return done;
    }
    recordTable(arena, events).print();
    return done;
}

}  // namespace tools
