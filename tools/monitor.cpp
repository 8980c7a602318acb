#include <algorithm>
#include <cstdio>
#include <ctime>
#include <iostream>

#include "tools/failure.h"
#include "tools/table.h"
#include "tools/text.h"
#include "tools/verbs.h"
#include "tools/watch.h"

namespace tools {
namespace {

/// Columns that nobody can measure beforehand: a column of names is as wide as the longest so far.
class LineSink : public Sink {
public:
    LineSink() {
        printLine(bold("TIME             " + inColumn("FROM", fromWidth_) + "  " + inColumn("TO", toWidth_) +
                       "      NUMBER     SIZE  DATA"));
    }

    void put(const Captured& signal) override {
        char counts[32];
        std::snprintf(counts, sizeof counts, "  %10u  %7u", signal.number, signal.size);
        const std::string line = localTime(signal.nanoseconds) + "  " +
                                 inColumn(printable(signal.fromName), fromWidth_) + "  " +
                                 inColumn(printable(signal.toName), toWidth_) + counts;
        const std::string data = signal.data.empty() && !signal.isCut() ? "" : "  " + wordsOf(signal);
        printLine(line + beside(line, data));
    }

private:
    static std::string inColumn(const std::string& text, size_t& width) {
        width = std::max(width, widthOf(text));
        return text + std::string(width - widthOf(text), ' ');
    }

    /// As much of it as is left of a terminal's line.
    static std::string beside(const std::string& line, const std::string& data) {
        constexpr char cut[] = "...";
        const size_t columns = columnsOfTerminal();
        const size_t used = widthOf(line);
        if (columns == 0 || used + data.size() <= columns) return data;
        if (used + sizeof cut - 1 >= columns) return {};
        return data.substr(0, columns - used - (sizeof cut - 1)) + cut;
    }

    static std::string localTime(uint64_t nanoseconds) {
        const auto seconds = static_cast<time_t>(nanoseconds / 1000000000);
        const auto microseconds = static_cast<unsigned>(nanoseconds % 1000000000 / 1000);
        std::tm parts = {};
        localtime_r(&seconds, &parts);
        char text[64];
        std::snprintf(text, sizeof text, "%02d:%02d:%02d.%06u", parts.tm_hour, parts.tm_min, parts.tm_sec,
                      microseconds);
        return text;
    }

    static std::string wordsOf(const Captured& signal) {
        std::string text;
        for (size_t at = 0; at < signal.data.size(); at += 4) {
            const auto start = signal.data.begin() + static_cast<std::ptrdiff_t>(at);
            const auto end = signal.data.begin() + static_cast<std::ptrdiff_t>(std::min(at + 4, signal.data.size()));
            text += (at == 0 ? "" : " ") + hexadecimal(Bytes(start, end));
        }
        return signal.isCut() ? text + "..." : text;
    }

    size_t fromWidth_ = 14;
    size_t toWidth_ = 14;
};

}  // namespace

int monitor(const Options& options, const WatchOptions& what) {
    Watch watch(options, what);
    const auto sink = options.json ? std::unique_ptr<Sink>(new JsonSink(stdout)) : std::make_unique<LineSink>();
    const Tally tally = watch.run(stdout, "the output", *sink);
    if (tally.lost != 0) {
        std::cerr << "linx: " << tally.lost
                  << " signals are missing: they were sent faster than they could be shown\n";
    }
    watch.requireEnough(tally);
    return done;
}

}  // namespace tools
