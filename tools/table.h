#ifndef LINXIPC_TOOLS_TABLE_H
#define LINXIPC_TOOLS_TABLE_H

#include <string>
#include <vector>

namespace tools {

/// A table. On standard output its columns align, as wide as what is in them; on a terminal the title stands out, and
/// so do marked rows, unless $NO_COLOR forbids it.
class Table {
public:
    enum class Align { left, right };
    struct Column {
        std::string title;
        Align align = Align::left;
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
