#include <algorithm>
#include <cerrno>
#include <chrono>

#include "tools/circle.h"
#include "tools/domain_report.h"
#include "tools/failure.h"
#include "tools/file.h"
#include "tools/graphviz.h"
#include "tools/look.h"
#include "tools/tables.h"
#include "tools/text.h"
#include "tools/verbs.h"

namespace tools {

using linx::inspect::Endpoint;
using linx::inspect::State;

namespace {

constexpr size_t usualRows = 1000;
constexpr size_t findingsAtOnce = 10;
constexpr size_t mostDrawn = 80;  ///< more ways than these nobody can tell apart, and to draw them takes long
constexpr std::chrono::milliseconds timeToDraw{800};

const char* word(size_t count, const char* one, const char* several) {
    return count == 1 ? one : several;
}

/// What Graphviz calls its nodes, and shows where the pointer rests, says nothing to anybody.
std::string withoutTitles(std::string svg) {
    const std::string begin = "<title>", end = "</title>";
    for (size_t at = svg.find(begin); at != std::string::npos; at = svg.find(begin, at)) {
        const size_t last = svg.find(end, at);
        if (last == std::string::npos) break;
        svg.erase(at, last + end.size() - at);
    }
    return svg;
}

std::string drawn(const Graph& graph) {
    try {
        return withoutTitles(drawnByGraphviz(dotOf(graph), timeToDraw));
    } catch (const Failure&) {  // the page has a graph in any case
        return drawnOnCircle(graph);
    }
}

size_t countOf(const DomainReport& report, State state) {
    return static_cast<size_t>(std::count_if(report.endpoints.begin(), report.endpoints.end(),
                                             [&](const Endpoint& endpoint) { return endpoint.state == state; }));
}

class Writer {
public:
    Writer(const DomainReport& report, size_t rows)
        : report_(report),
          rows_(rows),
          page_("Domain " + printable(report.place), "on " + printable(report.host) + ", " + report.time) {}

    std::string write() {
        addTiles();
        addFindings();
        addWaits();
        addGraph();
        page_.begin("list", "Endpoints");
        page_.add("Who is there, and who was", report_.list, rows_, "`linx list --all` shows all.");
        addQueues();
        addHunts();
        page_.begin("holders", "Memory");
        page_.add("Who holds how much", report_.holders, rows_, "`linx holders` shows all.");
        addRecord();
        page_.begin("machine", "Machine and limits");
        page_.add(report_.facts);
        return page_.finish();
    }

private:
    void addTiles() {
        const size_t ended = countOf(report_, State::ended), dead = countOf(report_, State::dead);
        size_t queued = 0;
        uint64_t held = 0;
        for (const Endpoint& endpoint : report_.endpoints) {
            queued += endpoint.account.queued.signals;
            held += endpoint.account.held.bytes + endpoint.account.queued.bytes;
        }
        const size_t cycles = report_.graph.waits.cycles.size();
        const size_t findings = report_.findings.size(), open = report_.endpoints.size() - ended;
        const size_t waits = report_.graph.waits.edges.size(), hunts = report_.hunts.size();
        page_.add(std::vector<Page::Tile>{
            {"findings", std::to_string(findings), word(findings, "finding", "findings"), findings != 0},
            {"list", std::to_string(open), word(open, "endpoint", "endpoints")},
            {"list", std::to_string(dead), "of them dead", dead != 0},
            {"waits", std::to_string(waits), word(waits, "waits for another", "wait for another")},
            {"waits", std::to_string(cycles), word(cycles, "cycle", "cycles"), cycles != 0},
            {"queues", std::to_string(queued), word(queued, "signal queued", "signals queued")},
            {"hunts", std::to_string(hunts), word(hunts, "pending hunt", "pending hunts")},
            {"holders", humanBytes(held), "owned"},
        });
    }

    void addFindings() {
        page_.begin("findings", "Findings");
        const std::vector<Finding>& all = report_.findings;
        if (all.empty()) page_.add("Nothing found.");
        const size_t shown = std::min(rows_, all.size());
        for (size_t i = 0; i < shown; ++i) {
            if (i == findingsAtOnce) page_.open("More", shown - i, false);
            page_.addFinding(all[i].finding, printable(all[i].subject), printable(all[i].text),
                             printable(all[i].remedy));
        }
        if (shown > findingsAtOnce) page_.close();
        if (shown < all.size()) page_.add("`linx doctor` shows " + std::to_string(all.size() - shown) + " more.");
    }

    void addWaits() {
        page_.begin("waits", "Who waits for whom");
        for (const auto& cycle : report_.graph.waits.cycles)
            page_.addFinding("cycle", wayRound(cycle), "", "each has asked the next one, and none can answer");
        if (report_.graph.waits.edges.empty()) return page_.add("Nobody waits for another's answer.");
        page_.add("For an answer", waitsTable(report_.graph.waits), rows_, "`linx waits` shows all.");
    }

    void addGraph() {
        page_.begin("graph", "Who sent to whom lately");
        const Graph& graph = report_.graph;
        if (graph.nodes.empty()) return page_.add("Nothing is recorded of anybody.");
        page_.add("Numbers, and how often each was sent; dashed: waits; red: in a cycle.");
        if (graph.traffic.size() > mostDrawn) {
            page_.add("Drawn are the busiest " + std::to_string(mostDrawn) + " of " +
                      std::to_string(graph.traffic.size()) + " ways.");
        }
        page_.addDrawing(drawn(busiestOf(graph, mostDrawn)));
        page_.add("As the records tell", trafficTable(graph), rows_, "`linx graph -j` has all.");
    }

    void addQueues() {
        constexpr Table::Align right = Table::Align::right;
        Table table({{"ENDPOINT"}, {"NUMBER", right}, {"SIGNALS", right}, {"BYTES", right}, {"FROM"}});
        for (const DomainReport::Queue& queue : report_.queues) {
            for (const auto& [number, pile] : queue.piles) {
                table.add({printable(queue.endpoint), std::to_string(number), std::to_string(pile.amount.signals),
                           humanBytes(pile.amount.bytes), sendersOf(pile)});
            }
        }
        page_.begin("queues", "Queues");
        if (table.rows().empty()) return page_.add("Nothing waits for anybody.");
        page_.add("By endpoint and number", table, rows_, "`linx status NAME` shows those of one.");
    }

    void addHunts() {
        Table table({{"HUNTER"}, {"HUNTS FOR"}});
        for (const DomainReport::Hunt& hunt : report_.hunts)
            table.add({printable(hunt.hunter), printable(hunt.name)});
        page_.begin("hunts", "Hunts");
        if (table.rows().empty()) return page_.add("Nobody hunts for a name that nobody has.");
        page_.add("For names that nobody has opened", table, rows_, "`linx status NAME` shows those of one.");
    }

    void addRecord() {
        page_.begin("record", "Recorder");
        const size_t shown = report_.record.rows().size();
        if (shown < report_.recorded) {
            page_.add("The last " + std::to_string(shown) + " of " + std::to_string(report_.recorded) +
                      " events: `linx record` shows all.");
        }
        page_.add("What happened last", report_.record, shown, "");
    }

    const DomainReport& report_;
    const size_t rows_;
    Page page_;
};

void writeTo(const std::string& name, const std::string& page) {
    if (name == "-") {
        std::fwrite(page.data(), 1, page.size(), stdout);  // what fails is told at the end
        return;
    }
    File file = openToWrite(name);
    const bool isWritten = std::fwrite(page.data(), 1, page.size(), file.get()) == page.size();
    if (std::fclose(file.release()) != 0 || !isWritten) failToWrite(name, errno);
}

}  // namespace

int report(const Options& options, const std::string& file) {
    if (options.json) throw Failure(badUsage, "a report is a page: the verbs that show what is on it print JSON");
    linx::inspect::Place place;
    openPlace(options, place);
    const size_t rows = options.count.value_or(usualRows);
    writeTo(file, Writer(reportOn(place, rows, firstTimeFor(options)), rows).write());
    return done;
}

}  // namespace tools
