#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <iostream>

#include "host/arena/layout.h"
#include "tools/complete.h"
#include "tools/failure.h"
#include "tools/text.h"
#include "tools/verbs.h"

namespace {

using tools::Options;

/// "500ms", "2s"; bare numbers are seconds.
std::chrono::milliseconds toTime(const std::string& text) {
    size_t end = 0;
    double number = -1;
    try {
        number = std::stod(text, &end);
    } catch (const std::exception&) {
    }
    const std::string unit = text.substr(end);
    const double factor = unit == "ms" ? 1 : unit.empty() || unit == "s" ? 1000 : 0;
    if (factor == 0 || !(number >= 0 && number < 1e9))
        throw CLI::ValidationError("'" + text + "' is no time such as 500ms or 2s");
    return std::chrono::milliseconds(static_cast<int64_t>(number * factor));
}

/// What a script has left empty was not to mean the default.
std::string namesSomething(const std::string& text) {
    return text.empty() ? "an empty word names nothing" : "";
}

std::string isPace(const std::string& text) {
    double pace = -1;
    return CLI::detail::lexical_cast(text, pace) && pace >= 0 && std::isfinite(pace)
               ? ""
               : "'" + text + "' is no pace such as 0, 1 or 2.5";
}

void addOptions(CLI::App& app, Options& options, std::string& domain) {
    app.add_flag("-j,--json", options.json, "print JSON");
    app.add_option("-N", options.count, "print so many rows at most")->option_text("COUNT");
    app.add_option_function<std::string>(
           "--timeout", [&](const std::string& text) { options.timeout = toTime(text); },
           "how long to wait: 500ms, 2s; bare numbers are seconds")
        ->option_text("TIME");
    app.add_option_function<std::string>(
           "--since", [&](const std::string& text) { options.since = toTime(text); },
           "leave out what is recorded of longer ago: 500ms, 2s")
        ->option_text("TIME");
    app.add_option("--domain", domain, "the domain, as $LINX_DOMAIN names one")
        ->check(namesSomething)
        ->option_text("PATH-OR-WORD");
    app.add_option("--file", options.arena, "an arena by itself, such as a copy of one")
        ->check(namesSomething)
        ->option_text("ARENA");
}

void addPayload(CLI::App& verb, tools::PayloadOptions& payload) {
    CLI::Option_group* group = verb.add_option_group("payload", "what to send: nothing, or one of these");
    group->require_option(0, 1);
    group->add_option("--text", payload.text, "this text")->option_text("TEXT");
    group->add_option("--hex", payload.hex, "these bytes, two digits each")->option_text("HEX");
    group->add_option("--u32", payload.words, "these numbers, 32 bits each in this machine's byte order")
        ->option_text("N...");
    group->add_option("--file", payload.file, "what is in this file")->option_text("FILE");
    group
        ->add_option_function<std::string>(
            "input", [&](const std::string&) { payload.standardInput = true; }, "- for what comes on standard input")
        ->check(CLI::IsMember({"-"}))
        ->option_text("-");
}

void addRequest(CLI::App& verb, tools::SendOptions& request) {
    verb.add_option("name", request.name, "whom to send to")->required()->option_text("NAME");
    verb.add_option("number", request.number, "the number of the signal")->required()->option_text("NUMBER");
    addPayload(verb, request.payload);
}

void addFilters(CLI::App& verb, tools::WatchOptions& watch, uint32_t usualSnaplen) {
    watch.snaplen = usualSnaplen;
    verb.add_option("names", watch.names, "from or to one of these alone")
        ->check(namesSomething)
        ->option_text("NAME...");
    verb.add_option("--number", watch.numbers, "of this number alone; may be given more than once")
        ->allow_extra_args(false)
        ->option_text("NUMBER");
    verb.add_option("--from", watch.from, "sent by this one alone")->check(namesSomething)->option_text("NAME");
    verb.add_option("--to", watch.to, "sent to this one alone")->check(namesSomething)->option_text("NAME");
    verb.add_option("--snaplen", watch.snaplen, "so many bytes of each payload at most")
        ->check(CLI::Range(0u, linx::maxSignalBytes))
        ->option_text("BYTES");
}

/// The command line, and the verb that it asks for.
class CommandLine {
public:
    CommandLine() {
        addOptions(app_, options_, domain_);
        app_.fallthrough();
        app_.require_subcommand(0, 1);
        app_.set_version_flag("--version", std::string("linx " LINXIPC_VERSION));
        app_.footer(
            "Without a verb it lists. Exit status: 0; 1 refused, or findings; 2 usage; 3 no such name; 4 timed "
            "out; 5 no domain.");
        addReaders();
        addPapers();
        addWatchers();
        addSenders();
    }

    int run(int argc, char** argv) {
        // Adaptors of shells ask by this verb, with words that are no command line yet.
        if (argc > 1 && std::string("__complete") == argv[1])
            return tools::complete(app_, std::vector<std::string>(argv + 2, argv + argc));
        try {
            app_.parse(argc, argv);
        } catch (const CLI::ParseError& error) {
            return app_.exit(error) == 0 ? tools::done : tools::badUsage;
        }
        if (!domain_.empty()) setenv("LINX_DOMAIN", domain_.c_str(), 1);
        try {
            const int status = verb_();
            tools::finishOutput();
            return status;
        } catch (const tools::Failure& failure) {
            std::cerr << "linx: " << failure.what() << "\n";
            return failure.status();
        } catch (const std::bad_alloc&) {
            std::cerr << "linx: there is no memory for that\n";
            return tools::refused;
        } catch (const std::exception& error) {
            std::cerr << "linx: " << error.what() << "\n";
            return tools::refused;
        }
    }

private:
    CLI::App* add(const char* name, const char* description, std::function<int()> verb) {
        CLI::App* added = app_.add_subcommand(name, description);
        added->callback([this, verb = std::move(verb)] { verb_ = verb; });
        return added;
    }

    void addReaders() {
        CLI::App* list = add("list", "show who is there", [this] { return tools::list(options_, list_); });
        list->add_flag("-a,--all", list_.all, "also those who have ended");
        CLI::App* hz = add("hz", "measure how much goes through; --timeout says for how long",
                           [this] { return tools::hz(options_, names_); });
        hz->add_option("name", names_, "of these alone")->check(namesSomething)->option_text("NAME...");
        CLI::App* top =
            add("top", "watch who does how much, until q is pressed", [this] { return tools::top(options_, top_); });
        top->add_option_function<std::string>(
               "--interval", [this](const std::string& text) { top_.interval = toTime(text); },
               "how often to look: 500ms, 2s; bare numbers are seconds")
            ->option_text("TIME");
        CLI::App* waits = add("waits", "show who waits for whom", [this] { return tools::waits(options_, waits_); });
        waits->add_flag("--dot", waits_.dot, "as a graph for Graphviz");
        CLI::App* record = add("record", "show what happened last, also at those who have ended",
                               [this] { return tools::record(options_, names_); });
        record->add_option("name", names_, "at these alone")->check(namesSomething)->option_text("NAME...");
        CLI::App* graph = add("graph", "draw who has sent to whom, and who waits",
                              [this] { return tools::graph(options_, graph_); });
        graph->add_option("name", graph_.names, "from or to one of these alone")
            ->check(namesSomething)
            ->option_text("NAME...");
        graph->add_flag("--dot", graph_.dot, "as a graph for Graphviz");
        CLI::App* status =
            add("status", "show one endpoint in full", [this] { return tools::status(options_, name_); });
        status->add_option("name", name_, "whose")->required()->option_text("NAME");
        CLI::App* holders =
            add("holders", "show who holds which memory", [this] { return tools::holders(options_, name_); });
        holders->add_option("name", name_, "of this one alone")->check(namesSomething)->option_text("NAME");
        CLI::App* links =
            add("links", "show how the links to other machines do", [this] { return tools::links(options_, name_); });
        links->add_option("name", name_, "this one alone")->check(namesSomething)->option_text("NAME");
        add("doctor", "find what is wrong, and say what to do about it", [this] { return tools::doctor(options_); });
    }

    void addPapers() {
        CLI::App* report = add("report", "write all of this as one page for a bug report",
                               [this] { return tools::report(options_, file_); });
        report->add_option("-o,--output", file_, "the file of HTML; - for standard output")
            ->required()
            ->check(namesSomething)
            ->option_text("FILE");
        CLI::App* completion = add("completion", "print what has a shell complete linx's verbs, names and numbers",
                                   [this] { return tools::completion(name_); });
        completion->add_option("shell", name_, "which shell")
            ->required()
            ->check(CLI::IsMember({"bash", "zsh", "fish"}))
            ->option_text("bash|zsh|fish");
    }

    void addWatchers() {
        CLI::App* monitor =
            add("monitor", "show signals as they are sent", [this] { return tools::monitor(options_, monitor_); });
        addFilters(*monitor, monitor_, 16);
        CLI::App* capture = add("capture", "write signals for Wireshark as they are sent",
                                [this] { return tools::capture(options_, capture_); });
        capture->add_option("-w,--write", capture_.output, "into this file; - for standard output")
            ->required()
            ->check(namesSomething)
            ->option_text("FILE");
        capture->add_flag("-q,--quiet", capture_.quiet, "say only what has gone wrong");
        addFilters(*capture, capture_.watch, 1024);
    }

    void addSenders() {
        CLI::App* log = add("log", "show the log mask of a process, or set it: it takes effect when it next receives",
                            [this] { return tools::log(options_, log_); });
        log->add_option("name", log_.name, "an endpoint of it")->required()->option_text("NAME");
        log->add_option("level", log_.level, "the mask: a sum of bits, as in $LINX_LOG_LEVEL")->option_text("LEVEL");
        CLI::App* send = add("send", "send a signal", [this] { return tools::send(options_, call_.request); });
        addRequest(*send, call_.request);
        CLI::App* call =
            add("call", "send a signal, and print the answer", [this] { return tools::call(options_, call_); });
        addRequest(*call, call_.request);
        call->add_option("--reply", call_.reply, "the number of the answer")->required()->option_text("NUMBER");
        CLI::App* replay =
            add("replay", "send again what was captured", [this] { return tools::replay(options_, replay_); });
        replay->add_option("capture", replay_.capture, "a file that capture has written")
            ->required()
            ->check(namesSomething)
            ->option_text("FILE");
        replay->add_option("--to", replay_.to, "all of it to this one")->check(namesSomething)->option_text("NAME");
        replay->add_option("--pace", replay_.pace, "so many times as fast as it was; 0: as fast as possible")
            ->check(isPace)
            ->option_text("FACTOR");
        CLI::App* wait =
            add("wait", "wait until somebody opens under a name", [this] { return tools::wait(options_, wait_); });
        wait->add_option("name", wait_.name, "which")->required()->option_text("NAME");
        wait->add_flag("--gone", wait_.gone, "until nobody is called that any more");
        CLI::App* shutdown = add("shutdown", "ask a server to shut down; with --timeout, wait until it has",
                                 [this] { return tools::shutdown(options_, name_); });
        shutdown->add_option("name", name_, "whom")->required()->option_text("NAME");
    }

    CLI::App app_{"Shows and steers the endpoints of a domain."};
    Options options_;
    std::string domain_;
    std::string name_;
    std::string file_;
    std::vector<std::string> names_;
    tools::ListOptions list_;
    tools::LogOptions log_;
    tools::TopOptions top_;
    tools::WaitsOptions waits_;
    tools::GraphOptions graph_;
    tools::WatchOptions monitor_;
    tools::CaptureOptions capture_;
    tools::ReplayOptions replay_;
    tools::CallOptions call_;
    tools::WaitOptions wait_;
    std::function<int()> verb_ = [this] { return tools::list(options_, list_); };
};

/// Has the standard streams open, whoever started the program: files that it opens must not be taken for them.
void openStandardStreams() {
    int file = open("/dev/null", O_RDWR);
    while (file != -1 && file <= STDERR_FILENO) file = open("/dev/null", O_RDWR);
    if (file != -1) close(file);
}

}  // namespace

int main(int argc, char** argv) {
    openStandardStreams();
    std::signal(SIGPIPE, SIG_IGN);  // who reads the output may have had enough
    return CommandLine().run(argc, argv);
}
