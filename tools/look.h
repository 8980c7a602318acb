#ifndef LINXIPC_TOOLS_LOOK_H
#define LINXIPC_TOOLS_LOOK_H

#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "inspect/endpoints.h"
#include "inspect/place.h"
#include "inspect/record.h"
#include "inspect/snapshot.h"
#include "tools/options.h"

namespace tools {

/// Opens the domain that is meant, or the arena; throws a Failure that says why not.
void openPlace(const Options& options, linx::inspect::Place& place);

/// Throws a Failure that says why what lies at `path` could not be read, from errno.
[[noreturn]] void failToRead(const std::string& path);

/// A snapshot of it; throws likewise.
std::unique_ptr<linx::inspect::Snapshot> snapshotOf(
    const linx::inspect::Place& place,
    linx::inspect::Snapshot::Events events = linx::inspect::Snapshot::Events::copied);

/// For verbs that join: there is a domain, and it was not an arena that was meant. Throws otherwise.
void requireDomain(const Options& options);

/// The name of an endpoint in a snapshot, open or not; its spid where its slot has gone to another.
std::string nameIn(const linx::Arena& arena, linx::Spid spid);

/// The endpoints of the domain that is meant, whose arena is looked at now.
std::vector<linx::inspect::Endpoint> endpointsThere(const Options& options);

/// The open endpoint of that name; throws a Failure where there is none.
const linx::inspect::Endpoint& openEndpoint(const std::vector<linx::inspect::Endpoint>& endpoints,
                                            const std::string& name);

/// Whether these names mean this one: none means all.
bool isAmong(const std::string& name, const std::vector<std::string>& names);

/// The time of the first events that are wanted, in nanoseconds of the monotonic clock; 0 for all.
uint64_t firstTimeFor(const Options& options);

/// The records of those who are called that, without what is known to have been before that time: most events have
/// none of their own.
std::vector<std::vector<linx::inspect::Recorded>> recordsOf(const linx::Arena& arena,
                                                            const std::vector<linx::inspect::Endpoint>& endpoints,
                                                            const std::vector<std::string>& names,
                                                            uint64_t firstTime);

/// Throws a Failure unless somebody is called, or was, by each of the names.
void requireNames(const std::vector<linx::inspect::Endpoint>& endpoints, const std::vector<std::string>& names);

/// Writes an array of what `toJson` makes of each.
void printJson(const std::vector<linx::inspect::Endpoint>& endpoints,
               nlohmann::ordered_json (*toJson)(const linx::inspect::Endpoint&));

/// "running", "sleeping" and so on: scripts rely on the words.
const char* wordFor(linx::inspect::State state);

/// Nobody is called that.
[[noreturn]] void failForName(const std::string& name);

/// Shortens rows to as many as are wanted.
template <class Row>
void limit(std::vector<Row>& rows, const Options& options) {
    if (options.count && rows.size() > *options.count) rows.erase(rows.begin() + *options.count, rows.end());
}

}  // namespace tools

#endif
