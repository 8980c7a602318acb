#ifndef LINXIPC_TOOLS_PAGE_H
#define LINXIPC_TOOLS_PAGE_H

#include <string>
#include <utility>
#include <vector>

#include "tools/table.h"

namespace tools {

/// A text as it may stand in HTML and XML, between tags and in the quotes of attributes.
std::string escaped(const std::string& text);

using Facts = std::vector<std::pair<std::string, std::string>>;

/// A page of HTML, which is well-formed XML too, in one piece: it wants nothing from elsewhere and runs nothing.
/// Texts are escaped; they have to be printable.
class Page {
public:
    Page(const std::string& title, const std::string& subtitle);

    /// What there is at a glance: each leads to a section.
    struct Tile {
        std::string section;
        std::string figure;
        std::string what;
        bool isBad = false;
    };
    void add(const std::vector<Tile>& tiles);

    /// Begins a section, which others and tiles know by its id: a word.
    void begin(const std::string& id, const std::string& title);

    void add(const std::string& paragraph);
    void add(const Facts& facts);
    /// Something that is wrong: what and whose, how so, and the remedy.
    void addFinding(const std::string& finding, const std::string& subject, const std::string& text,
                    const std::string& remedy);
    /// What is added in between stands behind a line that opens and closes it.
    void open(const std::string& title, size_t count, bool atFirst);
    void close();
    /// A table behind a line that opens and closes it; open at first where it is short. `more` tells where to find
    /// the rows beyond the first `most`.
    void add(const std::string& title, const Table& table, size_t most, const std::string& more);
    /// An SVG element, or a document of one.
    void addDrawing(const std::string& svg);

    /// Everything, at the end.
    std::string finish();

private:
    void element(const std::string& tag, const std::string& text);

    std::string text_;
    bool isInSection_ = false;
};

}  // namespace tools

#endif
