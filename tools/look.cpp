#include "tools/look.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>

#include "host/arena/domain_path.h"
#include "host/arena/name_table.h"
#include "host/system/clock.h"
#include "tools/failure.h"
#include "tools/text.h"

namespace tools {

using linx::inspect::Place;
using linx::inspect::Recorded;
using linx::inspect::Snapshot;
using linx::inspect::State;

void failToRead(const std::string& path) {
    const std::string shown = printable(path);
    switch (errno) {
        case ENOENT:
        case ENOTDIR:
            throw Failure(noDomain,
                          "there is no domain at " + shown +
                              ": nobody has opened an endpoint there; --domain or $LINX_DOMAIN names another");
        case EPROTO:
            throw Failure(noDomain, "what lies at " + shown +
                                        " is no arena of this make: it was made by another version, by a machine of "
                                        "another byte order, or is damaged; with nobody in it, it may be removed");
        case EACCES:
        case EPERM:
            throw Failure(refused, "no permission to read " + shown +
                                       ": be the user whose it is, or in its group (you are " + userName(geteuid()) +
                                       ")");
        default:
            throw Failure(refused, shown + " cannot be read: " + std::strerror(errno));
    }
}

void openPlace(const Options& options, Place& place) {
    if (!options.arena.empty()) {
        if (!place.openFile(options.arena)) failToRead(options.arena);
        return;
    }
    const std::string path = linx::domainPath();
    if (path.empty()) throw Failure(badUsage, "a domain is an absolute path or a word without slashes");
    if (!place.openDirectory(path)) failToRead(path);
}

std::unique_ptr<Snapshot> snapshotOf(const Place& place, Snapshot::Events events) {
    std::unique_ptr<Snapshot> snapshot = Snapshot::take(place.file(), events);
    if (snapshot == nullptr) failToRead(place.path());
    return snapshot;
}

void requireDomain(const Options& options) {
    if (!options.arena.empty()) throw Failure(badUsage, "an arena can be looked at alone: to send, name its domain");
    Place place;
    openPlace(options, place);
}

std::string nameIn(const linx::Arena& arena, linx::Spid spid) {
    linx::Name name;
    return nameOfSpid(arena, spid, name) ? name.text() : hexadecimal(spid);
}

std::vector<linx::inspect::Endpoint> endpointsThere(const Options& options) {
    Place place;
    openPlace(options, place);
    return linx::inspect::endpointsOf(snapshotOf(place)->arena(), place);
}

const linx::inspect::Endpoint& openEndpoint(const std::vector<linx::inspect::Endpoint>& endpoints,
                                            const std::string& name) {
    const auto found = std::find_if(endpoints.begin(), endpoints.end(), [&](const linx::inspect::Endpoint& one) {
        return one.name == name && one.state != State::ended;
    });
    if (found == endpoints.end()) failForName(name);
    return *found;
}

bool isAmong(const std::string& name, const std::vector<std::string>& names) {
    return names.empty() || std::find(names.begin(), names.end(), name) != names.end();
}

uint64_t firstTimeFor(const Options& options) {
    if (!options.since) return 0;
    const auto before = static_cast<uint64_t>(std::chrono::nanoseconds(*options.since).count());
    const uint64_t now = linx::now();
    return before < now ? now - before : 0;
}

std::vector<std::vector<Recorded>> recordsOf(const linx::Arena& arena,
                                             const std::vector<linx::inspect::Endpoint>& endpoints,
                                             const std::vector<std::string>& names, uint64_t firstTime) {
    std::vector<std::vector<Recorded>> records;
    for (const auto& endpoint : endpoints) {
        if (!isAmong(endpoint.name, names)) continue;
        std::vector<Recorded> events = linx::inspect::recordOf(arena, indexOf(endpoint.spid));
        const auto lastBefore = std::find_if(events.rbegin(), events.rend(), [&](const Recorded& event) {
            return event.time != 0 && event.time < firstTime;
        });
        events.erase(events.begin(), lastBefore.base());
        records.push_back(std::move(events));
    }
    return records;
}

void requireNames(const std::vector<linx::inspect::Endpoint>& endpoints, const std::vector<std::string>& names) {
    for (const std::string& name : names) {
        const auto isIt = [&](const linx::inspect::Endpoint& endpoint) { return endpoint.name == name; };
        if (std::none_of(endpoints.begin(), endpoints.end(), isIt)) failForName(name);
    }
}

void printJson(const std::vector<linx::inspect::Endpoint>& endpoints,
               nlohmann::ordered_json (*toJson)(const linx::inspect::Endpoint&)) {
    nlohmann::ordered_json all = nlohmann::ordered_json::array();
    for (const linx::inspect::Endpoint& endpoint : endpoints) all.push_back(toJson(endpoint));
    printJson(all);
}

const char* wordFor(State state) {
    switch (state) {
        case State::running:
            return "running";
        case State::sleeping:
            return "sleeping";
        case State::waiting:
            return "waiting";
        case State::stopped:
            return "stopped";
        case State::dead:
            return "dead";
        case State::ended:
            break;
    }
    return "ended";
}

void failForName(const std::string& name) {
    throw Failure(noSuchName, "no endpoint is called '" + printable(name) + "': `linx list` shows who is there");
}

}  // namespace tools
