#ifndef LINXIPC_TOOLS_TABLE_H
#define LINXIPC_TOOLS_TABLE_H

#include <string>
#include <vector>

namespace tools {

/// A table. On standard output its columns align, as wide as what is in them; on a terminal the title stands out, and
/// so do marked rows, unless $NO_COLOR forbids it, and what does not fit beside the rest is left out, as far as it is
/// not essential.
class Table {
public:
    enum class Align { left, right };
    struct Column {
        std::string title;
        Align align = Align::left;
        bool isEssential = true;
    };

    struct Row {
        std::vector<std::string> cells;
        bool isMarked;
    };

    explicit Table(std::vector<Column> columns) : columns_(std::move(columns)) {}

    void add(std::vector<std::string> cells, bool isMarked = false) { rows_.push_back({std::move(cells), isMarked}); }
    void print() const;

    /// For those who write it elsewhere.
    const std::vector<Column>& columns() const { return columns_; }
    const std::vector<Row>& rows() const { return rows_; }

private:
    /// A column that is shown, and how wide it is.
    struct Shown {
        size_t index;
        size_t width;
    };
    std::vector<Shown> shown() const;
    std::string lineOf(const std::vector<std::string>& cells, const std::vector<Shown>& shown) const;

    std::vector<Column> columns_;
    std::vector<Row> rows_;
};

/// Columns of the terminal that standard output is; 0 where it is none, or does not say.
size_t columnsOfTerminal();

/// The text in bold, or in red, where standard output shows that.
std::string bold(const std::string& text);
std::string red(const std::string& text);

}  // namespace tools

#endif
