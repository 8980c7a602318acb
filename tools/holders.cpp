#include <algorithm>
#include <nlohmann/json.hpp>

#include "tools/failure.h"
#include "tools/look.h"
#include "tools/tables.h"
#include "tools/text.h"
#include "tools/verbs.h"

namespace tools {

using linx::inspect::Account;
using linx::inspect::Endpoint;
using linx::inspect::State;

namespace {

uint64_t bytesOf(const Account& account) {
    return account.held.bytes + account.queued.bytes;
}

nlohmann::ordered_json toJson(const Holder& holder) {
    const Account& account = holder.endpoint.account;
    nlohmann::ordered_json object = {{"owner", holder.endpoint.name},
                                     {"bytes", bytesOf(account)},
                                     {"signals", account.held.signals + account.queued.signals},
                                     {"oldest_seconds", nullptr},
                                     {"queued_bytes", account.queued.bytes},
                                     {"queued_signals", account.queued.signals},
                                     {"lent_bytes", account.lent.bytes},
                                     {"lent_signals", account.lent.signals},
                                     {"blocks", nlohmann::ordered_json::array()}};
    if (holder.holding.since) object["oldest_seconds"] = secondsSince(*holder.holding.since);
    for (const auto& [bytes, signals] : holder.holding.sizes) {
        object["blocks"].push_back({{"block_bytes", bytes}, {"signals", signals}});
    }
    return object;
}

std::string ageOf(const Holder& holder) {
    return holder.holding.since ? humanSeconds(secondsSince(*holder.holding.since)) : "-";
}

/// The sizes of the blocks, those that take most first: "2 of 64 B, 1 of 5.1 KiB".
std::string sizesOf(const Holder& holder) {
    constexpr size_t most = 3;
    std::vector<std::pair<uint32_t, uint32_t>> sizes(holder.holding.sizes.begin(), holder.holding.sizes.end());
    std::stable_sort(sizes.begin(), sizes.end(), [](const auto& a, const auto& b) {
        return uint64_t{a.first} * a.second > uint64_t{b.first} * b.second;
    });
    std::string text;
    for (size_t i = 0; i < std::min(most, sizes.size()); ++i) {
        text += (i == 0 ? "" : ", ") + std::to_string(sizes[i].second) + " of " + humanBytes(sizes[i].first);
    }
    return sizes.empty() ? "-" : text + (sizes.size() > most ? ", ..." : "");
}

}  // namespace

std::vector<Holder> holdersAmong(const linx::Arena& arena, const std::vector<Endpoint>& endpoints,
                                 const std::string& name) {
    auto holdings = linx::inspect::holdingsOf(arena);
    std::vector<Holder> holders;
    for (const Endpoint& endpoint : endpoints) {
        if (endpoint.state == State::ended || (!name.empty() && endpoint.name != name)) continue;
        if (!name.empty() || bytesOf(endpoint.account) != 0 || endpoint.account.lent.bytes != 0) {
            holders.push_back({endpoint, std::move(holdings[endpoint.spid])});
        }
    }
    std::stable_sort(holders.begin(), holders.end(), [](const Holder& a, const Holder& b) {
        return bytesOf(a.endpoint.account) > bytesOf(b.endpoint.account);
    });
    return holders;
}

Table holdersTable(const std::vector<Holder>& holders) {
    constexpr Table::Align right = Table::Align::right;
    Table table({{"OWNER"},
                 {"SIGNALS", right},
                 {"BYTES", right},
                 {"OF WHICH QUEUED", right},
                 {"ON ITS ACCOUNT", right},
                 {"OLDEST", right},
                 {"SIZES"}});
    for (const Holder& holder : holders) {
        const Account& account = holder.endpoint.account;
        table.add({printable(holder.endpoint.name), std::to_string(account.held.signals + account.queued.signals),
                   humanBytes(bytesOf(account)), humanBytes(account.queued.bytes), humanBytes(account.lent.bytes),
                   ageOf(holder), sizesOf(holder)});
    }
    return table;
}

int holders(const Options& options, const std::string& name) {
    linx::inspect::Place place;
    openPlace(options, place);
    const auto snapshot = snapshotOf(place);
    const std::vector<Endpoint> endpoints = linx::inspect::endpointsOf(snapshot->arena(), place);
    std::vector<Holder> found = holdersAmong(snapshot->arena(), endpoints, name);
    if (found.empty() && !name.empty()) failForName(name);
    limit(found, options);
    if (options.json) {
        nlohmann::ordered_json all = nlohmann::ordered_json::array();
        for (const Holder& holder : found) all.push_back(toJson(holder));
        printJson(all);
        return done;
    }
    holdersTable(found).print();
    return done;
}

}  // namespace tools
