#ifndef LINXIPC_LINK_CONFIGURATION_TABLE_READER_H
#define LINXIPC_LINK_CONFIGURATION_TABLE_READER_H

#include <toml++/toml.h>

#include <functional>
#include <string>
#include <vector>

#include "link/configuration/configuration.h"

namespace linx::link {

/// Takes the values of a table by their keys, and notes what is wrong with each. At the end, what was not asked for
/// is wrong too.
class TableReader {
public:
    using Check = std::function<std::string(const std::string&)>;

    /// `where` is what the table is called when something is missing in it.
    TableReader(const toml::table& table, std::string where, Problems& problems)
        : table_(table), where_(std::move(where)), problems_(problems) {}

    /// Empty when it is missing or wrong. `example` is a whole line of how it is written.
    std::string text(const char* key, const char* example, const Check& check = {});
    std::string neededText(const char* key, const char* example, const Check& check = {});
    std::vector<std::string> texts(const char* key, const char* example, const Check& check);
    bool flag(const char* key);
    int64_t number(const char* key, int64_t least, int64_t most, int64_t usual);
    /// The tables that are written [[key]].
    std::vector<const toml::table*> tables(const char* key);

    void refuseOthers();
    unsigned line() const { return lineOf(table_); }

private:
    static unsigned lineOf(const toml::node& node) { return static_cast<unsigned>(node.source().begin.line); }
    const toml::node* find(const char* key);
    void complain(const toml::node& node, std::string text) { problems_.push_back({lineOf(node), std::move(text)}); }
    bool isRight(const toml::node& node, const std::string& key, const std::string& word, const Check& check);

    const toml::table& table_;
    const std::string where_;
    Problems& problems_;
    std::vector<std::string> known_;
};

}  // namespace linx::link

#endif
