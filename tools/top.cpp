#include <signal.h>

#include <algorithm>
#include <csignal>
#include <nlohmann/json.hpp>

#include "inspect/waits.h"
#include "tools/failure.h"
#include "tools/look.h"
#include "tools/rates.h"
#include "tools/screen.h"
#include "tools/table.h"
#include "tools/text.h"
#include "tools/verbs.h"

namespace tools {
namespace {

volatile std::sig_atomic_t isEnding = 0;

void end(int) {
    isEnding = 1;
}

using Order = bool (*)(const Rated& a, const Rated& b);

/// By which column, and the key that asks for it.
struct Sorting {
    char key;
    const char* name;
    Order order;
};

constexpr Sorting sortings[] = {
    {'r', "rate",
     [](const Rated& a, const Rated& b) {
         return a.rate.signalsOut + a.rate.signalsIn > b.rate.signalsOut + b.rate.signalsIn;
     }},
    {'b', "bytes",
     [](const Rated& a, const Rated& b) {
         return a.rate.bytesOut + a.rate.bytesIn > b.rate.bytesOut + b.rate.bytesIn;
     }},
    {'u', "queue",
     [](const Rated& a, const Rated& b) {
         return a.endpoint.account.queued.signals > b.endpoint.account.queued.signals;
     }},
    {'m', "memory",
     [](const Rated& a, const Rated& b) { return a.endpoint.account.held.bytes > b.endpoint.account.held.bytes; }},
    {'n', "name", [](const Rated& a, const Rated& b) { return a.endpoint.name < b.endpoint.name; }}};

std::string nameAmong(const std::vector<Rated>& rates, linx::Spid spid) {
    const auto found =
        std::find_if(rates.begin(), rates.end(), [&](const Rated& one) { return one.endpoint.spid == spid; });
    return found == rates.end() ? hexadecimal(spid) : found->endpoint.name;
}

std::string waitOf(const linx::inspect::Endpoint& endpoint, const std::vector<Rated>& rates) {
    const auto edges = linx::inspect::edgesOf({endpoint});
    if (edges.empty()) return "";
    return printable(nameAmong(rates, edges[0].to)) + " " + humanSeconds(secondsSince(edges[0].since));
}

void show(const std::vector<Rated>& rates, size_t rows) {
    constexpr Table::Align right = Table::Align::right;
    Table table({{"NAME"},
                 {"PID", right},
                 {"STATE"},
                 {"OUT/S", right},
                 {"IN/S", right},
                 {"BYTES/S", right},
                 {"QUEUED", right},
                 {"DEEPEST", right, false},
                 {"HELD", right},
                 {"WAITS-FOR"}});
    for (size_t i = 0; i < rates.size() && (rows == 0 || i < rows); ++i) {
        const auto& [endpoint, rate] = rates[i];
        table.add(
            {printable(endpoint.name), endpoint.process ? std::to_string(endpoint.process->pid) : "-",
             wordFor(endpoint.state), humanRate(rate.signalsOut), humanRate(rate.signalsIn),
             humanRate(rate.bytesOut + rate.bytesIn), std::to_string(endpoint.account.queued.signals),
             std::to_string(endpoint.deepest), humanBytes(endpoint.account.held.bytes), waitOf(endpoint, rates)},
            endpoint.state == linx::inspect::State::dead);
    }
    table.print();
}

/// Looks at the domain again and again.
class Top {
public:
    Top(const Options& options, std::chrono::milliseconds interval) : options_(options), interval_(interval) {
        openPlace(options, place_);
    }

    void run() {
        Screen screen;
        const uint64_t start = (before_ = sampleOf(place_)).nanoseconds;
        do {
            const char key = screen.key(interval_);
            if (key == 'q' || isEnding != 0) return;
            for (const Sorting& sorting : sortings) {
                if (sorting.key == key) sorting_ = &sorting;
            }
            look(screen);
        } while (!isOver(start));
    }

private:
    bool isOver(uint64_t start) const {
        if (!options_.timeout) return false;
        const auto limit = std::chrono::nanoseconds(*options_.timeout).count();
        return before_.nanoseconds - start >= static_cast<uint64_t>(limit);
    }

    void look(Screen& screen) {
        Sample now = sampleOf(place_);
        std::vector<Rated> rates = ratesBetween(before_, now);
        before_ = std::move(now);
        std::stable_sort(rates.begin(), rates.end(), sorting_->order);
        const size_t there = rates.size();
        limit(rates, options_);
        screen.clear();
        constexpr size_t otherRows = 5;  // above the rows, and where the cursor stands
        if (screen.isTerminal()) {
            printLine(bold(printable(place_.path())) + ": " + std::to_string(there) + " endpoints, by " +
                      sorting_->name);
            printLine("q quits; r b u m n sort by rate, bytes, queue, memory, name");
            printLine("");
        }
        const size_t rows = screen.rows();
        show(rates, rows > otherRows ? rows - otherRows : rows);
        if (!screen.isTerminal()) printLine("");
        finishOutput();
    }

    const Options& options_;
    const std::chrono::milliseconds interval_;
    linx::inspect::Place place_;
    Sample before_;
    const Sorting* sorting_ = sortings;
};

}  // namespace

int top(const Options& options, const TopOptions& what) {
    if (options.json) throw Failure(badUsage, "top is for the eye: `linx hz -j` and `linx list -j` are for scripts");
    struct sigaction action {};
    action.sa_handler = end;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    Top(options, what.interval).run();
    return done;
}

}  // namespace tools
