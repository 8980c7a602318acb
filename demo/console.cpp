#include "demo/console.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "demo/report.h"
#include "demo/roster.h"

namespace demo {

namespace {

constexpr std::size_t nameWidth = 14;

bool wantsColours(bool noColor) {
    const char* environment = std::getenv("NO_COLOR");
    return !noColor && (environment == nullptr || *environment == '\0') && isatty(STDOUT_FILENO) == 1;
}

const char* colourOf(e_Process who) {
    static constexpr const char* colours[roster.size()] = {"1;33", "32",   "36",   "34",  "35",
                                                           "1;35", "1;36", "1;32", "1;34"};
    const auto place = std::find(roster.begin(), roster.end(), who);
    return place == roster.end() ? "1" : colours[place - roster.begin()];
}

std::string padded(const std::string& text, std::size_t width) {
    return text.size() < width ? text + std::string(width - text.size(), ' ') : text;
}

std::size_t width(const std::vector<Row>& rows, std::string Row::*column, const std::string& title) {
    std::size_t width = title.size();
    for (const Row& row : rows) width = std::max(width, (row.*column).size());
    return width + 2;
}

}  // namespace

Console::Console(bool noColor) : colours_(wantsColours(noColor)), start_(microseconds()) {}

void Console::printLine(std::int64_t microseconds, e_Process who, const std::string& text) {
    char time[32];
    std::snprintf(time, sizeof time, "%7.1f ms  ", static_cast<double>(microseconds - start_) / 1000.0);
    const std::string name = who == launcher ? "launcher" : nameOf(who);
    printText(time + coloured(colourOf(who), padded(name, nameWidth)) + "  " + text);
}

void Console::printTable(const std::vector<Row>& rows) {
    const std::size_t what = width(rows, &Row::what, "what was to happen");
    const std::size_t expected = width(rows, &Row::expected, "expected");
    const std::size_t seen = width(rows, &Row::seen, "seen");
    const std::size_t by = width(rows, &Row::by, "by");
    const auto line = [&](const Row& row, const std::string& verdict) {
        printText(padded(row.what, what) + padded(row.expected, expected) + padded(row.seen, seen) +
                  padded(row.by, by) + verdict);
    };
    printText("");
    line({"what was to happen", "expected", "seen", "by", false}, "");
    printText(std::string(what + expected + seen + by + 3, '-'));
    for (const Row& row : rows) line(row, row.happened ? coloured("32", "yes") : coloured("1;31", "NO"));
    printText("");
}

void Console::printText(const std::string& text) {
    std::fputs((text + "\n").c_str(), stdout);
    std::fflush(stdout);
}

std::string Console::coloured(const char* colour, const std::string& text) const {
    return colours_ ? "\033[" + std::string(colour) + "m" + text + "\033[0m" : text;
}

}  // namespace demo
