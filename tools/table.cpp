#include "tools/table.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "tools/text.h"

namespace tools {
namespace {

constexpr size_t gap = 2;  ///< between columns

bool hasColours() {
    const char* forbidden = std::getenv("NO_COLOR");
    return isatty(STDOUT_FILENO) == 1 && (forbidden == nullptr || *forbidden == '\0');
}

std::string painted(const char* how, const std::string& text) {
    return hasColours() ? "\033[" + std::string(how) + "m" + text + "\033[0m" : text;
}

}  // namespace

std::string bold(const std::string& text) {
    return painted("1", text);
}
std::string red(const std::string& text) {
    return painted("31", text);
}

size_t columnsOfTerminal() {
    winsize size{};
    return isatty(STDOUT_FILENO) == 1 && ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

std::vector<Table::Shown> Table::shown() const {
    std::vector<Shown> shown;
    size_t total = 0;
    for (size_t i = 0; i < columns_.size(); ++i) {
        size_t width = widthOf(columns_[i].title);
        for (const Row& row : rows_) width = std::max(width, widthOf(row.cells[i]));
        shown.push_back({i, width});
        total += width + gap;
    }
    const size_t room = columnsOfTerminal();
    if (room == 0) return shown;
    for (size_t i = shown.size(); i-- != 0 && total > room + gap;) {
        if (columns_[shown[i].index].isEssential) continue;
        total -= shown[i].width + gap;
        shown.erase(shown.begin() + static_cast<std::ptrdiff_t>(i));
    }
    return shown;
}

std::string Table::lineOf(const std::vector<std::string>& cells, const std::vector<Shown>& shown) const {
    std::string line;
    for (const Shown& column : shown) {
        const std::string& cell = cells[column.index];
        const std::string space(column.width - widthOf(cell), ' ');
        if (&column != &shown.front()) line.append(gap, ' ');
        line += columns_[column.index].align == Align::right ? space + cell : cell + space;
    }
    line.erase(line.find_last_not_of(' ') + 1);
    return line;
}

void Table::print() const {
    const std::vector<Shown> all = shown();
    std::vector<std::string> titles;
    for (const Column& column : columns_) titles.push_back(column.title);
    printLine(bold(lineOf(titles, all)));
    for (const Row& row : rows_) {
        const std::string line = lineOf(row.cells, all);
        printLine(row.isMarked ? red(line) : line);
    }
}

}  // namespace tools
