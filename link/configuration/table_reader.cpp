#include "link/configuration/table_reader.h"

#include <algorithm>

#include "link/configuration/words.h"

namespace linx::link {
namespace {

std::string quoted(const std::string& word) {
    return "\"" + word + "\"";
}

std::string listed(const std::vector<std::string>& words) {
    std::string list;
    for (const std::string& word : words) list += (list.empty() ? "" : ", ") + word;
    return list;
}

}  // namespace

const toml::node* TableReader::find(const char* key) {
    known_.push_back(key);
    return table_.get(key);
}

bool TableReader::isRight(const toml::node& node, const std::string& key, const std::string& word,
                          const Check& check) {
    const std::string trouble = check ? check(word) : std::string();
    if (!trouble.empty()) complain(node, key + ": " + quoted(word) + " " + trouble);
    return trouble.empty();
}

std::string TableReader::text(const char* key, const char* example, const Check& check) {
    const toml::node* const node = find(key);
    if (node == nullptr) return {};
    const std::optional<std::string> word = node->value_exact<std::string>();
    if (!word) complain(*node, std::string(key) + " has to be text in quotes, such as: " + example);
    return word && isRight(*node, key, *word, check) ? *word : std::string();
}

std::string TableReader::neededText(const char* key, const char* example, const Check& check) {
    if (!table_.contains(key)) complain(table_, where_ + " has no " + key + "; write such as: " + example);
    return text(key, example, check);
}

std::vector<std::string> TableReader::texts(const char* key, const char* example, const Check& check) {
    const toml::node* const node = find(key);
    if (node == nullptr) return {};
    std::vector<std::string> words;
    const toml::array* const array = node->as_array();
    bool areTexts = array != nullptr;
    for (size_t i = 0; areTexts && i < array->size(); ++i) {
        const toml::node& element = *array->get(i);
        const std::optional<std::string> word = element.value_exact<std::string>();
        areTexts = word.has_value();
        if (word && isRight(element, key, *word, check)) words.push_back(*word);
    }
    if (!areTexts) complain(*node, std::string(key) + " has to be a list of texts, such as: " + example);
    return words;
}

bool TableReader::flag(const char* key) {
    const toml::node* const node = find(key);
    if (node == nullptr) return false;
    const std::optional<bool> value = node->value_exact<bool>();
    if (!value) complain(*node, std::string(key) + " has to be true or false, without quotes");
    return value.value_or(false);
}

int64_t TableReader::number(const char* key, int64_t least, int64_t most, int64_t usual) {
    const toml::node* const node = find(key);
    if (node == nullptr) return usual;
    const std::optional<int64_t> value = node->value_exact<int64_t>();
    if (value && *value >= least && *value <= most) return *value;
    complain(*node, std::string(key) + " has to be a number of " + std::to_string(least) + " to " +
                        std::to_string(most) + ", without quotes; left out it is " + std::to_string(usual));
    return usual;
}

std::vector<const toml::table*> TableReader::tables(const char* key) {
    const toml::node* const node = find(key);
    if (node == nullptr) return {};
    const toml::array* const array = node->as_array();
    std::vector<const toml::table*> tables;
    for (size_t i = 0; array != nullptr && i < array->size(); ++i) {
        if (const toml::table* const table = array->get(i)->as_table()) tables.push_back(table);
    }
    if (array == nullptr || tables.size() != array->size()) {
        complain(*node, std::string("each ") + key + " has to be written [[" + key + "]], in two pairs of brackets");
    }
    return tables;
}

void TableReader::refuseOthers() {
    for (const auto& [key, node] : table_) {
        const std::string word(key.str());
        if (std::find(known_.begin(), known_.end(), word) != known_.end()) continue;
        const std::string meant = nearest(word, known_);
        const unsigned line = static_cast<unsigned>(key.source().begin.line);
        const std::string right = meant.empty() ? "it has " + listed(known_) : "is " + quoted(meant) + " meant?";
        problems_.push_back({line, where_ + " has no " + quoted(word) + "; " + right});
    }
}

}  // namespace linx::link
