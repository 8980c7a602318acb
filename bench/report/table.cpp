#include "bench/report/table.h"

#include <algorithm>
#include <iomanip>
#include <ostream>
#include <sstream>

namespace bench {

namespace {

using Row = std::vector<std::string>;

std::string text(double value) {
    std::ostringstream text;
    text << std::fixed << std::setprecision(value != 0 && value < 100 ? 2 : 0) << value;
    return text.str();
}

Row titles(const Record& record) {
    Row titles = {"peer", "cores", "payload", "count"};
    for (const auto& [name, spread] : record.spreads) titles.push_back(name);
    titles.push_back("range");
    return titles;
}

/// The figure that a case is about comes from its scenario; how it scattered is told of one only.
const Spread& chiefOf(const Record& record) {
    for (const char* name : {"median_ns", "rate_per_s"}) {
        const auto found = record.spreads.find(name);
        if (found != record.spreads.end()) return found->second;
    }
    return record.spreads.begin()->second;
}

Row cells(const Record& record) {
    Row cells = {record.peer, nameOf(record.placement), std::to_string(record.payload),
                 std::to_string(record.population)};
    for (const auto& [name, spread] : record.spreads) cells.push_back(text(spread.median));
    const Spread& chief = chiefOf(record);
    cells.push_back(text(chief.least) + " to " + text(chief.most));
    return cells;
}

void print(std::ostream& out, const std::vector<Row>& rows) {
    std::vector<std::size_t> widths(rows.front().size());
    for (const Row& row : rows) {
        for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], row[i].size());
    }
    for (const Row& row : rows) {
        for (std::size_t i = 0; i < row.size(); ++i) {
            const bool words = i < 2;
            out << "| " << (words ? std::left : std::right) << std::setw(static_cast<int>(widths[i])) << row[i]
                << ' ';
        }
        out << "|\n";
        if (&row != &rows.front()) continue;
        for (std::size_t i = 0; i < row.size(); ++i) {
            out << '|' << std::string(widths[i] + 1, '-') << (i < 2 ? '-' : ':');
        }
        out << "|\n";
    }
}

}  // namespace

void printTable(std::ostream& out, const Scenario& scenario, const Records& records) {
    std::vector<Row> rows;
    for (const Record& record : records) {
        if (record.scenario != scenario.name()) continue;
        if (rows.empty()) rows.push_back(titles(record));
        rows.push_back(cells(record));
    }
    if (rows.empty()) return;
    out << "\n### " << scenario.name() << "\n\n" << scenario.about() << ".\n\n";
    print(out, rows);
    out << std::flush;
}

}  // namespace bench
