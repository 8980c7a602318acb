#ifndef LINXIPC_TOOLS_TABLE_H
#define LINXIPC_TOOLS_TABLE_H

#include <string>
#include <vector>

namespace tools {

/// A table on standard output: columns that align, as wide as what is in them. On a terminal the title stands out,
/// and so do marked rows, unless $NO_COLOR forbids it.
class Table {
public:
    enum class Align { left, right };
    struct Column {
        std::string title;
        Align align = Align::left;
    };

    explicit Table(std::vector<Column> columns) : columns_(std::move(columns)) {}

    void add(std::vector<std::string> cells, bool isMarked = false) { rows_.push_back({std::move(cells), isMarked}); }
    void print() const;

private:
    struct Row {
        std::vector<std::string> cells;
        bool isMarked;
    };

    std::vector<size_t> widths() const;
    std::string lineOf(const std::vector<std::string>& cells, const std::vector<size_t>& widths) const;

    std::vector<Column> columns_;
    std::vector<Row> rows_;
};

/// The text in bold, or in red, where standard output shows that.
std::string bold(const std::string& text);
std::string red(const std::string& text);

}  // namespace tools

#endif
