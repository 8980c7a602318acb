#include "tools/complete.h"

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <map>
#include <set>

#include "tools/failure.h"
#include "tools/graph.h"
#include "tools/look.h"
#include "tools/text.h"
#include "tools/words_before.h"

namespace tools {
namespace {

using linx::inspect::Endpoint;
using linx::inspect::State;

/// What may stand there, and what it is.
using Candidates = std::map<std::string, std::string>;

bool has(const std::string& text, const char* part) {
    return text.find(part) != std::string::npos;
}

Candidates verbsOf(const CLI::App& app) {
    Candidates verbs;
    for (const CLI::App* verb : app.get_subcommands({})) {
        if (!verb->get_name().empty()) verbs[verb->get_name()] = verb->get_description();
    }
    return verbs;
}

Candidates optionsAt(const WordsBefore& line) {
    Candidates options;
    for (const CLI::Option* option : line.options()) {
        for (const std::string& name : option->get_snames()) options.insert({"-" + name, option->get_description()});
        for (const std::string& name : option->get_lnames()) options.insert({"--" + name, option->get_description()});
    }
    return options;
}

Candidates wordsIn(const std::string& choice) {
    Candidates words;
    for (size_t at = 0; at <= choice.size();) {
        const size_t end = std::min(choice.find('|', at), choice.size());
        words[choice.substr(at, end - at)] = "";
        at = end + 1;
    }
    return words;
}

/// A domain, as the line means it.
class Domain {
public:
    explicit Domain(const WordsBefore& line) {
        Options options;
        options.arena = line.valueOf("--file");
        const std::string domain = line.valueOf("--domain");
        if (!domain.empty()) setenv("LINX_DOMAIN", domain.c_str(), 1);
        openPlace(options, place_);
        snapshot_ = snapshotOf(place_);
        endpoints_ = linx::inspect::endpointsOf(snapshot_->arena(), place_);
    }

    Candidates names(bool withEnded) const {
        Candidates names;
        for (const Endpoint& endpoint : endpoints_) {
            if (withEnded || endpoint.state != State::ended) names.insert({endpoint.name, wordFor(endpoint.state)});
        }
        return names;
    }

    /// Of what was sent lately: to the endpoint or by it, or at all where nothing is known of it.
    Candidates numbers(const std::string& name, bool byIt) const {
        const Graph graph = graphOf(snapshot_->arena(), endpoints_, {}, 0);
        std::map<uint32_t, uint64_t> its, all;
        for (const Graph::Traffic& edge : graph.traffic) {
            for (const auto& [number, volume] : edge.numbers) {
                all[number] += volume.signals;
                if ((byIt ? edge.from : edge.to) == name) its[number] += volume.signals;
            }
        }
        Candidates numbers;
        for (const auto& [number, signals] : its.empty() ? all : its)
            numbers[std::to_string(number)] = "sent " + std::to_string(signals) + (signals == 1 ? " time" : " times");
        return numbers;
    }

private:
    linx::inspect::Place place_;
    std::unique_ptr<linx::inspect::Snapshot> snapshot_;
    std::vector<Endpoint> endpoints_;
};

void print(const Candidates& candidates, const std::string& before, const std::string& begun) {
    for (const auto& [word, what] : candidates) {
        if (word.compare(0, begun.size(), begun) == 0 && printable(word) == word)
            printLine(before + word + (what.empty() ? "" : "\t" + what));
    }
}

bool isFile(const std::string& placeholder) {
    return has(placeholder, "FILE") || has(placeholder, "ARENA") || has(placeholder, "PATH");
}

/// What an option or an argument is goes by what its help calls it.
Candidates valuesFor(const CLI::Option& option, const WordsBefore& line) {
    const std::string placeholder = option.get_option_text();
    if (has(placeholder, "NAME")) {
        static const std::set<std::string> postMortem = {"graph", "record", "status"};
        return Domain(line).names(postMortem.count(line.verb().get_name()) != 0);
    }
    if (has(placeholder, "NUMBER")) return Domain(line).numbers(line.firstArgument(), option.check_name("--reply"));
    return has(placeholder, "|") ? wordsIn(placeholder) : Candidates();
}

void printValues(const CLI::Option* option, const WordsBefore& line, const std::string& before,
                 const std::string& begun) {
    if (option != nullptr && isFile(option->get_option_text())) return printLine("files");
    printLine("words");
    if (option == nullptr) return;
    try {
        print(valuesFor(*option, line), before, begun);
    } catch (const Failure&) {  // there is no domain, and so nobody in it
    }
}

}  // namespace

int complete(const CLI::App& app, std::vector<std::string> words) {
    const std::string last = words.empty() ? "" : words.back();
    if (!words.empty()) words.pop_back();
    const WordsBefore line(app, words);
    const bool isOption = !line.hasEndedOptions() && !last.empty() && last[0] == '-';
    const size_t equals = last.find('=');
    const bool mayEnd = line.awaiting() != nullptr && line.awaiting()->get_items_expected_max() > 1;
    if (line.awaiting() != nullptr && !(isOption && mayEnd)) {
        printValues(line.awaiting(), line, "", last);
    } else if (isOption && equals != std::string::npos) {
        printValues(line.find(last.substr(0, equals)), line, last.substr(0, equals + 1), last.substr(equals + 1));
    } else if (isOption) {
        printLine("words");
        print(optionsAt(line), "", last);
    } else if (!line.hasVerb() && line.firstArgument().empty()) {
        printLine("words");
        print(verbsOf(app), "", last);
    } else {
        printValues(line.argument(), line, "", last);
    }
    return done;
}

}  // namespace tools
