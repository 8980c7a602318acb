#ifndef LINXIPC_DEMO_CONSOLE_H
#define LINXIPC_DEMO_CONSOLE_H

#include <cstdint>
#include <string>
#include <vector>

#include "directory/e_Process.h"

namespace demo {

/// One line of the table at the end.
struct Row {
    std::string what;
    std::string expected;
    std::string seen;
    std::string by;
    bool happened = false;
};

/// Standard output. Only the launcher writes there, so lines never mix.
class Console {
public:
    /// Colours are used on a terminal, unless the user does not want them (`noColor`, or $NO_COLOR).
    explicit Console(bool noColor);

    /// Time since the first line, who, what.
    void printLine(std::int64_t microseconds, e_Process who, const std::string& text);

    /// What was to happen and what did.
    void printTable(const std::vector<Row>& rows);

    /// A line of plain text.
    void printText(const std::string& text);

private:
    std::string coloured(const char* colour, const std::string& text) const;

    bool colours_;
    std::int64_t start_;
};

}  // namespace demo

#endif
