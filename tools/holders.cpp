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

nlohmann::ordered_json toJson(const Endpoint& endpoint) {
    const Account& account = endpoint.account;
    return {{"owner", endpoint.name},
            {"bytes", bytesOf(account)},
            {"signals", account.held.signals + account.queued.signals},
            {"queued_bytes", account.queued.bytes},
            {"queued_signals", account.queued.signals},
            {"lent_bytes", account.lent.bytes},
            {"lent_signals", account.lent.signals}};
}

}  // namespace

std::vector<Endpoint> holdersAmong(const std::vector<Endpoint>& endpoints, const std::string& name) {
    std::vector<Endpoint> holders;
    for (const Endpoint& endpoint : endpoints) {
        if (endpoint.state == State::ended || (!name.empty() && endpoint.name != name)) continue;
        if (!name.empty() || bytesOf(endpoint.account) != 0 || endpoint.account.lent.bytes != 0) {
            holders.push_back(endpoint);
        }
    }
    std::stable_sort(holders.begin(), holders.end(),
                     [](const Endpoint& a, const Endpoint& b) { return bytesOf(a.account) > bytesOf(b.account); });
    return holders;
}

Table holdersTable(const std::vector<Endpoint>& holders) {
    constexpr Table::Align right = Table::Align::right;
    Table table(
        {{"OWNER"}, {"SIGNALS", right}, {"BYTES", right}, {"OF WHICH QUEUED", right}, {"ON ITS ACCOUNT", right}});
    for (const Endpoint& endpoint : holders) {
        const Account& account = endpoint.account;
        table.add({printable(endpoint.name), std::to_string(account.held.signals + account.queued.signals),
                   humanBytes(bytesOf(account)), humanBytes(account.queued.bytes), humanBytes(account.lent.bytes)});
    }
    return table;
}

int holders(const Options& options, const std::string& name) {
    std::vector<Endpoint> found = holdersAmong(endpointsThere(options), name);
    if (found.empty() && !name.empty()) failForName(name);
    limit(found, options);
    if (options.json) {
        printJson(found, toJson);
        return done;
    }
    holdersTable(found).print();
    return done;
}

}  // namespace tools
