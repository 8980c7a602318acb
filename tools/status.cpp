#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>

#include "host/arena/share.h"
#include "inspect/hunts.h"
#include "inspect/signals.h"
#include "tools/failure.h"
#include "tools/look.h"
#include "tools/queues.h"
#include "tools/table.h"
#include "tools/text.h"
#include "tools/verbs.h"

namespace tools {

using linx::Arena;
using linx::BlockRef;
using linx::Spid;
using linx::inspect::Amount;
using linx::inspect::Endpoint;
using linx::inspect::State;
using linx::inspect::Where;

namespace {

/// One endpoint in full.
struct Report {
    Endpoint endpoint;
    Piles queued;
    std::map<uint32_t, Amount> classes;  ///< what it owns, by the bytes of a block
    uint64_t leased = 0;                 ///< memory whose home it is, free or not
    uint64_t share = 0;                  ///< that it may have
    std::vector<std::string> hunts;
    std::string waitsFor;  ///< to whom it sent before it slept
};

/// Whether the user of a name says more of it than another one: who is open does, or who ended later.
bool isLater(const Endpoint& one, const Endpoint& other) {
    const bool hasEnded = one.state == State::ended;
    if (hasEnded != (other.state == State::ended)) return !hasEnded;
    return static_cast<int32_t>(one.ending - other.ending) > 0;
}

/// The open endpoint of that name; otherwise the one that ended last.
const Endpoint& find(const std::vector<Endpoint>& endpoints, const std::string& name) {
    const Endpoint* found = nullptr;
    for (const Endpoint& endpoint : endpoints) {
        if (endpoint.name == name && (found == nullptr || isLater(endpoint, *found))) found = &endpoint;
    }
    if (found == nullptr) failForName(name);
    return *found;
}

Report reportOf(const Arena& arena, const Endpoint& endpoint) {
    Report report;
    report.endpoint = endpoint;
    report.share = uint64_t{linx::share::limitOf(arena)} * linx::lineBytes;
    if (!isOpen(arena, endpoint.spid)) return report;
    report.leased = uint64_t{linx::share::linesOf(arena.slot(indexOf(endpoint.spid)))} * linx::lineBytes;
    linx::inspect::forEachSignal(arena, [&](Where, Spid owner, BlockRef block) {
        if (owner != endpoint.spid) return;
        report.classes[linx::linesOfClass(block.sizeClass) * linx::lineBytes].add(block);
    });
    auto queued = queuesOf(arena);
    report.queued = std::move(queued[endpoint.spid]);
    if (endpoint.wait) report.waitsFor = nameIn(arena, endpoint.wait->to);
    for (const linx::inspect::PendingHunt& hunt : linx::inspect::pendingHunts(arena)) {
        if (hunt.hunter == endpoint.spid) report.hunts.push_back(hunt.name);
    }
    return report;
}

nlohmann::ordered_json toJson(const Report& report) {
    const Endpoint& endpoint = report.endpoint;
    nlohmann::ordered_json json;
    json["name"] = endpoint.name;
    json["spid"] = linx::numberOf(endpoint.spid);
    json["pid"] = endpoint.process ? nlohmann::ordered_json(endpoint.process->pid) : nullptr;
    json["process"] = endpoint.process ? nlohmann::ordered_json(endpoint.process->name) : nullptr;
    json["user"] = endpoint.process ? nlohmann::ordered_json(userName(endpoint.process->user)) : nullptr;
    json["state"] = wordFor(endpoint.state);
    json["deepest"] = endpoint.deepest;
    json["in"] = {{"signals", endpoint.traffic.signalsIn}, {"bytes", endpoint.traffic.bytesIn}};
    json["out"] = {{"signals", endpoint.traffic.signalsOut}, {"bytes", endpoint.traffic.bytesOut}};
    json["dropped"] = endpoint.dropped;
    json["refused"] = {{"ended", endpoint.refused.ended},
                       {"never_there", endpoint.refused.neverThere},
                       {"no_memory", endpoint.refused.noMemory},
                       {"no_descriptors", endpoint.refused.noDescriptors}};
    json["log"] = endpoint.logMask;
    json["sleeps"] = endpoint.sleeps;
    json["rings"] = endpoint.rings;
    json["held"] = endpoint.account.held.bytes;
    json["lent"] = endpoint.account.lent.bytes;
    json["leased"] = report.leased;
    json["share"] = report.share;
    json["queued"] = nlohmann::ordered_json::array();
    for (const auto& [number, pile] : report.queued) {
        json["queued"].push_back({{"number", number},
                                  {"signals", pile.amount.signals},
                                  {"bytes", pile.amount.bytes},
                                  {"senders", pile.senders}});
    }
    json["blocks"] = nlohmann::ordered_json::array();
    for (const auto& [bytes, amount] : report.classes) {
        json["blocks"].push_back({{"block_bytes", bytes}, {"signals", amount.signals}, {"bytes", amount.bytes}});
    }
    json["hunts"] = report.hunts;
    return json;
}

void printFact(const std::string& name, const std::string& value) {
    constexpr size_t width = 12;
    printLine(name + std::string(width - name.size(), ' ') + value);
}

std::string reasonsOf(const linx::Refusals& refused) {
    std::string text;
    const auto add = [&](uint32_t count, const char* reason) {
        if (count != 0) text += (text.empty() ? ": " : ", ") + std::to_string(count) + " " + reason;
    };
    add(refused.ended, "to those who had ended");
    add(refused.neverThere, "to nobody");
    add(refused.noMemory, "without memory");
    add(refused.noDescriptors, "without descriptors");
    return text;
}

std::string textOf(const linx::inspect::Wait& wait, const std::string& waitsFor) {
    std::string text = "for " + humanSeconds(secondsSince(wait.since));
    if (wait.count == 0) return text + ", for any signal";
    for (size_t i = 0; i < wait.numbers.size(); ++i) {
        text += (i == 0 ? ", for " : ", ") + std::to_string(wait.numbers[i]);
    }
    if (wait.count > wait.numbers.size()) text += ", ...";
    if (wait.to == linx::Spid::none) return text;
    return text + ", having sent " + std::to_string(wait.sent) + " to " + printable(waitsFor);
}

void printText(const Report& report) {
    const Endpoint& endpoint = report.endpoint;
    printFact("name", printable(endpoint.name));
    printFact("spid", hexadecimal(endpoint.spid));
    if (endpoint.process) {
        printFact("process", std::to_string(endpoint.process->pid) + " " + printable(endpoint.process->name) +
                                 ", user " + userName(endpoint.process->user));
    }
    printFact("state", wordFor(endpoint.state));
    printFact("queue", std::to_string(endpoint.account.queued.signals) + " now, " + std::to_string(endpoint.deepest) +
                           " at the deepest");
    const linx::Traffic& traffic = endpoint.traffic;
    printFact("received", std::to_string(traffic.signalsIn) + " signals, " + humanBytes(traffic.bytesIn));
    printFact("sent", std::to_string(traffic.signalsOut) + " signals, " + humanBytes(traffic.bytesOut));
    printFact("dropped", std::to_string(endpoint.dropped) + reasonsOf(endpoint.refused));
    if (endpoint.wait) printFact("waits", textOf(*endpoint.wait, report.waitsFor));
    printFact("log", std::to_string(endpoint.logMask));
    printFact("sleeps", std::to_string(endpoint.sleeps));
    printFact("rings", std::to_string(endpoint.rings));
    printFact("held", humanBytes(endpoint.account.held.bytes) + " in " +
                          std::to_string(endpoint.account.held.signals) + " signals");
    printFact("account", humanBytes(endpoint.account.lent.bytes) + " in use, " + humanBytes(report.leased) +
                             " leased, of at most " + humanBytes(report.share));
    for (const std::string& name : report.hunts) printFact("hunts", printable(name));
    constexpr Table::Align right = Table::Align::right;
    if (!report.queued.empty()) {
        printLine("");
        Table table({{"QUEUED NUMBER", right}, {"SIGNALS", right}, {"BYTES", right}, {"FROM"}});
        for (const auto& [number, pile] : report.queued) {
            table.add({std::to_string(number), std::to_string(pile.amount.signals), humanBytes(pile.amount.bytes),
                       sendersOf(pile)});
        }
        table.print();
    }
    if (!report.classes.empty()) {
        printLine("");
        Table table({{"BLOCKS OF", right}, {"SIGNALS", right}, {"BYTES", right}});
        for (const auto& [bytes, amount] : report.classes) {
            table.add({humanBytes(bytes), std::to_string(amount.signals), humanBytes(amount.bytes)});
        }
        table.print();
    }
}

}  // namespace

int status(const Options& options, const std::string& name) {
    linx::inspect::Place place;
    openPlace(options, place);
    const auto snapshot = snapshotOf(place);
    const Arena& arena = snapshot->arena();
    const std::vector<Endpoint> endpoints = linx::inspect::endpointsOf(arena, place);
    const Report report = reportOf(arena, find(endpoints, name));
    if (options.json) {
        printJson(toJson(report));
    } else {
        printText(report);
    }
    return done;
}

}  // namespace tools
