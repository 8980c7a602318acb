#include <nlohmann/json.hpp>

#include "tools/endpoint_report.h"
#include "tools/failure.h"
#include "tools/look.h"
#include "tools/table.h"
#include "tools/text.h"
#include "tools/verbs.h"

namespace tools {

using linx::inspect::Endpoint;

namespace {

nlohmann::ordered_json toJson(const EndpointReport& report) {
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
    json["supervisors"] = report.supervisors;
    json["supervised"] = report.supervised;
    json["timeouts"] = nlohmann::ordered_json::array();
    for (const EndpointReport::Timeout& timeout : report.timeouts) {
        json["timeouts"].push_back({{"number", timeout.number}, {"seconds", timeout.seconds}});
    }
    json["errors"] = nlohmann::ordered_json::array();
    for (const EndpointReport::Error& error : report.errors) {
        json["errors"].push_back(
            {{"number", error.number}, {"size", error.size}, {"to", nullptr}, {"error", error.reason}});
        if (error.to) json["errors"].back()["to"] = *error.to;
    }
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

std::string listOf(const std::map<std::string, uint32_t>& notices) {
    std::string text;
    for (const auto& [name, count] : notices) {
        text +=
            (text.empty() ? "" : ", ") + printable(name) + (count == 1 ? "" : " " + std::to_string(count) + " times");
    }
    return text;
}

std::string textOf(const EndpointReport::Error& error) {
    return std::to_string(error.number) + (error.to ? " to " + printable(*error.to) : "") + ": " + error.reason;
}

void printText(const EndpointReport& report) {
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
    if (!report.supervised.empty()) printFact("supervises", listOf(report.supervised));
    if (!report.supervisors.empty()) printFact("supervised", "by " + listOf(report.supervisors));
    for (const EndpointReport::Timeout& timeout : report.timeouts) {
        printFact("time-out", std::to_string(timeout.number) + " in " + humanSeconds(timeout.seconds));
    }
    for (const EndpointReport::Error& error : report.errors) printFact("not sent", textOf(error));
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
    const EndpointReport report = reportOf(snapshot->arena(), place, name);
    if (options.json) {
        printJson(toJson(report));
    } else {
        printText(report);
    }
    return done;
}

}  // namespace tools
