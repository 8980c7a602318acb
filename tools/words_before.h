#ifndef LINXIPC_TOOLS_WORDS_BEFORE_H
#define LINXIPC_TOOLS_WORDS_BEFORE_H

#include <map>
#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace tools {

/// The words of a command line before the one that is being written, as the program would take them. They may be
/// wrong or too few.
class WordsBefore {
public:
    WordsBefore(const CLI::App& app, const std::vector<std::string>& words);

    /// The program itself as long as no verb is there.
    const CLI::App& verb() const { return *verb_; }
    bool hasVerb() const { return verb_ != &app_; }

    /// The option of which a value comes next, or may come; null when there is none.
    const CLI::Option* awaiting() const { return awaiting_; }

    /// The argument that comes next; null where there are enough.
    const CLI::Option* argument() const;

    /// Whether all that follows are arguments, even if it looks like options.
    bool hasEndedOptions() const { return hasEndedOptions_; }

    /// Those that may stand here, the verb's and the program's.
    std::vector<const CLI::Option*> options() const;

    /// Among these the one that is called that; null when there is none.
    const CLI::Option* find(const std::string& name) const;

    /// The first argument, and the last value of an option of the program's; empty where there is none.
    std::string firstArgument() const { return arguments_.empty() ? "" : arguments_.front(); }
    std::string valueOf(const std::string& programOption) const;

private:
    void take(const std::string& word);
    void takeOption(const std::string& word);

    const CLI::App& app_;
    const CLI::App* verb_;
    const CLI::Option* awaiting_ = nullptr;
    bool hasEndedOptions_ = false;
    std::vector<std::string> arguments_;
    std::map<const CLI::Option*, std::string> values_;
};

}  // namespace tools

#endif
