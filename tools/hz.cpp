#include <algorithm>
#include <nlohmann/json.hpp>
#include <thread>

#include "tools/failure.h"
#include "tools/look.h"
#include "tools/rates.h"
#include "tools/table.h"
#include "tools/text.h"
#include "tools/verbs.h"

namespace tools {
namespace {

constexpr std::chrono::milliseconds usualTime{1000};

std::vector<Rated> measure(const Options& options, const std::vector<std::string>& names) {
    linx::inspect::Place place;
    openPlace(options, place);
    const Sample earlier = sampleOf(place);
    requireNames(earlier.endpoints, names);
    std::this_thread::sleep_for(options.timeout.value_or(usualTime));
    std::vector<Rated> rates = ratesBetween(earlier, sampleOf(place));
    rates.erase(std::remove_if(rates.begin(), rates.end(),
                               [&](const Rated& one) { return !isAmong(one.endpoint.name, names); }),
                rates.end());
    return rates;
}

nlohmann::ordered_json toJson(const Rated& one) {
    return {{"name", one.endpoint.name},
            {"spid", linx::numberOf(one.endpoint.spid)},
            {"out_per_second", one.rate.signalsOut},
            {"in_per_second", one.rate.signalsIn},
            {"bytes_out_per_second", one.rate.bytesOut},
            {"bytes_in_per_second", one.rate.bytesIn}};
}

}  // namespace

int hz(const Options& options, const std::vector<std::string>& names) {
    std::vector<Rated> rates = measure(options, names);
    limit(rates, options);
    if (options.json) {
        nlohmann::ordered_json all = nlohmann::ordered_json::array();
        for (const Rated& one : rates) all.push_back(toJson(one));
        printJson(all);
        return done;
    }
    constexpr Table::Align right = Table::Align::right;
    Table table({{"NAME"}, {"OUT/S", right}, {"BYTES/S", right}, {"IN/S", right}, {"BYTES/S", right}});
    for (const auto& [endpoint, rate] : rates) {
        table.add({printable(endpoint.name), humanRate(rate.signalsOut), humanRate(rate.bytesOut),
                   humanRate(rate.signalsIn), humanRate(rate.bytesIn)});
    }
    table.print();
    return done;
}

}  // namespace tools
