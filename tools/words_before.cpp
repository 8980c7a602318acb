#include "tools/words_before.h"

#include <CLI/CLI.hpp>

namespace tools {
namespace {

/// With those of its groups, which are subcommands without a name.
std::vector<const CLI::Option*> allOptionsOf(const CLI::App& app) {
    std::vector<const CLI::Option*> all = app.get_options();
    for (const CLI::App* group : app.get_subcommands({})) {
        if (!group->get_name().empty()) continue;
        const std::vector<const CLI::Option*> its = group->get_options();
        all.insert(all.end(), its.begin(), its.end());
    }
    return all;
}

bool takesSeveral(const CLI::Option& option) {
    return option.get_items_expected_max() > 1;
}

}  // namespace

WordsBefore::WordsBefore(const CLI::App& app, const std::vector<std::string>& words) : app_(app), verb_(&app) {
    for (const std::string& word : words) take(word);
}

void WordsBefore::take(const std::string& word) {
    const bool looksLikeOption = !hasEndedOptions_ && word.size() > 1 && word[0] == '-';
    if (awaiting_ != nullptr && !(looksLikeOption && takesSeveral(*awaiting_))) {
        values_[awaiting_] = word;
        if (!takesSeveral(*awaiting_) || !awaiting_->get_allow_extra_args()) awaiting_ = nullptr;
        return;
    }
    awaiting_ = nullptr;
    if (looksLikeOption) return takeOption(word);
    for (const CLI::App* verb : app_.get_subcommands({})) {
        if (hasVerb() || verb->get_name() != word) continue;
        verb_ = verb;
        return;
    }
    arguments_.push_back(word);
}

void WordsBefore::takeOption(const std::string& word) {
    if (word == "--") {
        hasEndedOptions_ = true;
        return;
    }
    const size_t equals = word.find('=');
    const CLI::Option* const option = find(word.substr(0, equals));
    if (option == nullptr || option->get_items_expected_max() == 0) return;
    if (equals == std::string::npos) {
        awaiting_ = option;
    } else {
        values_[option] = word.substr(equals + 1);
    }
}

const CLI::Option* WordsBefore::argument() const {
    size_t left = arguments_.size();
    for (const CLI::Option* option : allOptionsOf(*verb_)) {
        if (!option->get_positional()) continue;
        if (left == 0 || takesSeveral(*option)) return option;
        --left;
    }
    return nullptr;
}

std::vector<const CLI::Option*> WordsBefore::options() const {
    std::vector<const CLI::Option*> all = allOptionsOf(*verb_);
    if (hasVerb()) {
        // The program's help and version are not for verbs, which have their own.
        for (const CLI::Option* option : app_.get_options()) {
            if (option != app_.get_help_ptr() && option != app_.get_version_ptr()) all.push_back(option);
        }
    }
    return all;
}

const CLI::Option* WordsBefore::find(const std::string& name) const {
    for (const CLI::Option* option : options()) {
        if (option->check_name(name)) return option;
    }
    return nullptr;
}

std::string WordsBefore::valueOf(const std::string& programOption) const {
    const auto its = values_.find(app_.get_option_no_throw(programOption));
    return its == values_.end() ? "" : its->second;
}

}  // namespace tools
