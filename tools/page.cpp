#include "tools/page.h"

#include <algorithm>

#include "tools/embedded.h"

namespace tools {
namespace {

constexpr size_t shortTable = 25;

/// As wide as it would like to be, with a unit; 0 where it does not say.
std::string widthWanted(const std::string& svg) {
    const std::string attribute = " width=\"";
    const size_t at = svg.find(attribute);
    if (at == std::string::npos || at > svg.find('>')) return "0px";
    const std::string value =
        svg.substr(at + attribute.size(), svg.find('"', at + attribute.size()) - at - attribute.size());
    return value.find_first_not_of("0123456789.") == std::string::npos ? value + "px" : value;
}

std::string cell(const char* tag, const Table::Column& column, const std::string& text) {
    const std::string name = tag;
    return "<" + name + (column.align == Table::Align::right ? " class=\"n\">" : ">") + escaped(text) + "</" + name +
           ">";
}

}  // namespace

std::string escaped(const std::string& text) {
    std::string result;
    result.reserve(text.size());
    for (const char c : text) {
        switch (c) {
            case '<':
                result += "&lt;";
                break;
            case '>':
                result += "&gt;";
                break;
            case '&':
                result += "&amp;";
                break;
            case '"':
                result += "&quot;";
                break;
            case '\'':
                result += "&#39;";
                break;
            default:
                result += c;
        }
    }
    return result;
}

Page::Page(const std::string& title, const std::string& subtitle) {
    text_ =
        "<!DOCTYPE html>\n"
        "<html lang=\"en\" xmlns=\"http://www.w3.org/1999/xhtml\">\n<head>\n<meta charset=\"utf-8\"/>\n"
        "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\"/>\n"
        "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; style-src 'unsafe-inline'\"/>\n";
    element("title", title);
    text_ += "<style>\n" + std::string(pageStyle) + "</style>\n</head>\n<body>\n<header>\n";
    element("h1", title);
    element("p", subtitle);
    text_ += "</header>\n";
}

void Page::element(const std::string& tag, const std::string& text) {
    text_ += "<" + tag + ">" + escaped(text) + "</" + tag + ">\n";
}

void Page::add(const std::vector<Tile>& tiles) {
    text_ += "<nav>\n";
    for (const Tile& tile : tiles) {
        text_ += "<a href=\"#" + tile.section + "\"" + (tile.isBad ? " class=\"bad\"" : "") + "><b>" +
                 escaped(tile.figure) + "</b> " + escaped(tile.what) + "</a>\n";
    }
    text_ += "</nav>\n";
}

void Page::begin(const std::string& id, const std::string& title) {
    if (isInSection_) text_ += "</section>\n";
    isInSection_ = true;
    text_ += "<section id=\"" + id + "\">\n";
    element("h2", title);
}

void Page::add(const std::string& paragraph) {
    element("p", paragraph);
}

void Page::add(const Facts& facts) {
    text_ += "<dl>\n";
    for (const auto& [name, value] : facts)
        text_ += "<dt>" + escaped(name) + "</dt><dd>" + escaped(value) + "</dd>\n";
    text_ += "</dl>\n";
}

void Page::addFinding(const std::string& finding, const std::string& subject, const std::string& text,
                      const std::string& remedy) {
    text_ += "<article class=\"finding\">\n<p><span class=\"bad\">" + escaped(finding) + "</span> <b>" +
             escaped(subject) + "</b> " + escaped(text) + "</p>\n<p class=\"remedy\">" + escaped(remedy) +
             "</p>\n</article>\n";
}

void Page::open(const std::string& title, size_t count, bool atFirst) {
    text_ += atFirst ? "<details open=\"open\">" : "<details>";
    text_ += "<summary>" + escaped(title) + " <span class=\"count\">" + std::to_string(count) + "</span></summary>\n";
}

void Page::close() {
    text_ += "</details>\n";
}

void Page::add(const std::string& title, const Table& table, size_t most, const std::string& more) {
    const size_t count = table.rows().size();
    const size_t shown = std::min(most, count);
    open(title, count, shown <= shortTable);
    if (shown < count) add("The first " + std::to_string(shown) + " of " + std::to_string(count) + ": " + more);
    text_ += "<div class=\"wide\"><table>\n<thead><tr>";
    for (const Table::Column& column : table.columns()) text_ += cell("th", column, column.title);
    text_ += "</tr></thead>\n<tbody>\n";
    for (size_t i = 0; i < shown; ++i) {
        const Table::Row& row = table.rows()[i];
        text_ += row.isMarked ? "<tr class=\"bad\">" : "<tr>";
        for (size_t j = 0; j < row.cells.size(); ++j) text_ += cell("td", table.columns()[j], row.cells[j]);
        text_ += "</tr>\n";
    }
    text_ += "</tbody>\n</table></div>\n";
    close();
}

void Page::addDrawing(const std::string& svg) {
    const std::string drawing = svg.substr(std::min(svg.size(), svg.find("<svg")));
    text_ += "<div class=\"graph\" style=\"--natural:" + widthWanted(drawing) + "\">\n" + drawing + "</div>\n";
}

std::string Page::finish() {
    if (isInSection_) text_ += "</section>\n";
    isInSection_ = false;
    return std::move(text_) + "</body>\n</html>\n";
}

}  // namespace tools
