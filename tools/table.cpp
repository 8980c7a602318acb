#include "tools/table.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "tools/text.h"

namespace tools {
namespace {

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

std::vector<size_t> Table::widths() const {
    std::vector<size_t> widths;
    for (size_t i = 0; i < columns_.size(); ++i) {
        size_t width = widthOf(columns_[i].title);
        for (const Row& row : rows_) width = std::max(width, widthOf(row.cells[i]));
        widths.push_back(width);
    }
    return widths;
}

std::string Table::lineOf(const std::vector<std::string>& cells, const std::vector<size_t>& widths) const {
    std::string line;
    for (size_t i = 0; i < cells.size(); ++i) {
        const std::string space(widths[i] - widthOf(cells[i]), ' ');
        if (i != 0) line += "  ";
        line += columns_[i].align == Align::right ? space + cells[i] : cells[i] + space;
    }
    line.erase(line.find_last_not_of(' ') + 1);
    return line;
}

void Table::print() const {
    const std::vector<size_t> all = widths();
    std::vector<std::string> titles;
    for (const Column& column : columns_) titles.push_back(column.title);
    printLine(bold(lineOf(titles, all)));
    for (const Row& row : rows_) {
        const std::string line = lineOf(row.cells, all);
        printLine(row.isMarked ? red(line) : line);
    }
}

}  // namespace tools
