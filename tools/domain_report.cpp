#include "tools/domain_report.h"

#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <ctime>

#include "host/arena/share.h"
#include "tools/look.h"
#include "tools/tables.h"
#include "tools/text.h"

namespace tools {

using linx::Arena;
using linx::inspect::Endpoint;
using linx::inspect::Place;

namespace {

std::string timeNow() {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    char text[64] = "";
    if (localtime_r(&now, &local) != nullptr) std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S %z", &local);
    return text;
}

std::string descriptorsAllowed() {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) == -1) return "unknown";
    return limit.rlim_cur == RLIM_INFINITY ? "any number" : std::to_string(limit.rlim_cur);
}

std::string countOf(uint64_t count, uint64_t most) {
    return std::to_string(count) + " of at most " + std::to_string(most);
}

Facts factsOf(const Arena& arena, const Place& place, const utsname& machine, size_t open, size_t hunts) {
    struct stat file {};
    const bool isKnown = fstat(place.file(), &file) == 0;
    const uint64_t share = uint64_t{linx::share::limitOf(arena)} * linx::lineBytes;
    Facts facts = {
        {"program", "linx " LINXIPC_VERSION},
        {"arena", "layout " + std::to_string(linx::arenaVersion) +
                      (isKnown ? ", " + humanBytes(static_cast<uint64_t>(file.st_size)) + " at most, " +
                                     humanBytes(static_cast<uint64_t>(file.st_blocks) * 512) + " in use"
                               : "")},
        {"owner", isKnown ? userName(file.st_uid) : "unknown"},
        {"endpoints", countOf(open, linx::slotCount - 1)},
        {"pending hunts", countOf(hunts, linx::huntCount)},
        {"memory for each", humanBytes(share)},
        {"kernel", std::string(machine.sysname) + " " + machine.release + ", " + machine.machine},
        {"processors", std::to_string(sysconf(_SC_NPROCESSORS_ONLN))},
        {"descriptors", descriptorsAllowed() + " for this user's processes"},
    };
    if (place.directory() == -1)
        facts.push_back({"processes",
                         "not known: the arena was looked at by itself. Times are of use only on the "
                         "machine that it comes from, before that has started again"});
    return facts;
}

std::vector<DomainReport::Queue> queuesIn(const Arena& arena, const std::vector<Endpoint>& endpoints) {
    auto bySpid = queuesOf(arena);
    std::vector<DomainReport::Queue> queues;
    for (const Endpoint& endpoint : endpoints) {
        const auto its = bySpid.find(endpoint.spid);
        if (its != bySpid.end()) queues.push_back({endpoint.name, std::move(its->second)});
    }
    return queues;
}

}  // namespace

DomainReport reportOn(const Place& place, size_t mostEvents, uint64_t firstTime) {
    DomainReport report;
    utsname machine{};
    uname(&machine);
    report.host = machine.nodename;
    report.place = place.path();
    report.time = timeNow();
    {
        const auto snapshot = snapshotOf(place);
        const Arena& arena = snapshot->arena();
        report.endpoints = linx::inspect::endpointsOf(arena, place);
        report.graph = graphOf(arena, report.endpoints, {}, firstTime);
        report.queues = queuesIn(arena, report.endpoints);
        for (const auto& hunt : linx::inspect::pendingHunts(arena))
            report.hunts.push_back({nameIn(arena, hunt.hunter), hunt.name});
        report.list = listTable(arena, report.endpoints);
        report.holders = holdersTable(holdersAmong(arena, report.endpoints, ""));
        auto events = linx::inspect::merge(recordsOf(arena, report.endpoints, {}, firstTime));
        report.recorded = events.size();
        if (events.size() > mostEvents)
            events.erase(events.begin(), events.end() - static_cast<std::ptrdiff_t>(mostEvents));
        report.record = recordTable(arena, events);
        size_t open = 0;
        for (const Endpoint& endpoint : report.endpoints)
            open += endpoint.state == linx::inspect::State::ended ? 0 : 1;
        report.facts = factsOf(arena, place, machine, open, report.hunts.size());
    }
    report.findings = examine(place);  // with snapshots of its own, each as large as what is used of the arena
    return report;
}

}  // namespace tools
