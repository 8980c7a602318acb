#include "bench/report/plots.h"

#include <cstdio>
#include <filesystem>
#include <sstream>

#include "bench/harness/check.h"

namespace bench {

namespace {

struct Plot {
    std::string file;
    std::string title;
    std::string scenario;
    Placement placement;
    enum class Across { payload, population } across;
    std::string figure;
    std::string unit;
    double scale;
    bool bytes;  ///< the figure times the payload
};

const std::vector<Plot>& Plots() {
    using Across = Plot::Across;
    static const std::vector<Plot> plots = {
        {"round-trip", "Round trip, a core each", "round-trip", Placement::apart, Across::payload, "median_ns",
         "microseconds", 1e-3, false},
        {"round-trip-one-core", "Round trip, one core", "round-trip", Placement::one, Across::payload, "median_ns",
         "microseconds", 1e-3, false},
        {"round-trip-p99", "Round trip, a core each, 99th percentile", "round-trip", Placement::apart,
         Across::payload, "p99_ns", "microseconds", 1e-3, false},
        {"stream", "Stream, a core each", "stream", Placement::apart, Across::payload, "rate_per_s",
         "messages a second", 1, false},
        {"stream-bytes", "Stream, a core each", "stream", Placement::apart, Across::payload, "rate_per_s",
         "MB a second", 1e-6, true},
        {"stream-cpu", "Stream, a core each: processor time of all processes", "stream", Placement::apart,
         Across::payload, "cpu_ns", "microseconds a message", 1e-3, false},
        {"relay", "Through a relay, two cores", "relay", Placement::both, Across::payload, "rate_per_s",
         "messages a second", 1, false},
        {"fan-in", "Many senders of 64 bytes, two cores", "fan-in", Placement::both, Across::population, "rate_per_s",
         "messages a second", 1, false},
    };
    return plots;
}

using Series = std::map<std::string, std::string>;

Series SeriesOf(const Plot& plot, const Records& records) {
    Series series;
    for (const Record& record : records) {
        if (record.scenario != plot.scenario || record.placement != plot.placement) continue;
        std::ostringstream point;
        point << (plot.across == Plot::Across::payload ? record.payload : record.population) << ' '
              << record.spreads.at(plot.figure).median * plot.scale *
                     (plot.bytes ? static_cast<double>(record.payload) : 1)
              << '\n';
        series[record.peer] += point.str();
    }
    return series;
}

std::string ScriptFor(const Plot& plot, const std::string& directory, const Series& series) {
    std::ostringstream script;
    script << "reset\nset terminal svg size 900,560 font 'sans,13' background 'white'\n"
           << "set output '" << directory << '/' << plot.file << ".svg'\nset title '" << plot.title << "'\n"
           << "set xlabel '" << (plot.across == Plot::Across::payload ? "payload, bytes" : "senders") << "'\n"
           << "set ylabel '" << plot.unit << "'\nset logscale xy\nset grid\nset key outside right\n"
           << "set format y '%.6g'\n";
    unsigned number = 0;
    for (const auto& [peer, points] : series) script << "$d" << number++ << " << EOD\n" << points << "EOD\n";
    number = 0;
    script << "plot ";
    for (const auto& [peer, points] : series) {
        script << (number > 0 ? ", " : "") << "$d" << number << " with linespoints pt " << number + 4 << " lw "
               << (peer == "LinxIpc" ? 3 : 1.5) << " title '" << peer << '\'';
        ++number;
    }
    script << '\n';
    return script.str();
}

}  // namespace

void DrawPlots(const std::string& directory, const Records& records) {
    std::filesystem::create_directories(directory);
    FILE* gnuplot = popen("gnuplot", "w");
    Check(gnuplot != nullptr, "gnuplot");
    for (const Plot& plot : Plots()) {
        const Series series = SeriesOf(plot, records);
        if (!series.empty()) std::fputs(ScriptFor(plot, directory, series).c_str(), gnuplot);
    }
    Expect(pclose(gnuplot) == 0, "gnuplot has not drawn the plots");
}

}  // namespace bench
