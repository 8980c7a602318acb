#include "bench/report/plots.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <map>
#include <set>
#include <sstream>

#include "bench/harness/check.h"
#include "bench/peers/list.h"

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

const std::vector<Plot>& plots() {
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
         "bytes a second", 1, true},
        {"stream-cpu", "Stream, a core each: processor time of all processes", "stream", Placement::apart,
         Across::payload, "cpu_ns", "microseconds a message", 1e-3, false},
        {"relay", "Through a relay, two cores", "relay", Placement::both, Across::payload, "rate_per_s",
         "messages a second", 1, false},
        {"fan-in", "Many senders of 64 bytes, two cores", "fan-in", Placement::both, Across::population, "rate_per_s",
         "messages a second", 1, false},
    };
    return plots;
}

/// How a peer looks, the same in all plots.
struct Style {
    const char* colour;
    unsigned shape;  ///< gnuplot's number of a point type
};

/// Colours that stay apart for those, too, who do not tell red from green or blue from yellow.
Style styleOf(const std::string& peer) {
    static const std::map<std::string, Style> styles = {
        {linxIpcName, {"#000000", 7}},      {bareMemoryName, {"#33BBEE", 9}}, {iceoryxPollingName, {"#AA3377", 11}},
        {iceoryxName, {"#EE6677", 10}},     {seqpacketName, {"#332288", 5}},  {zeromqName, {"#0077BB", 8}},
        {messageQueueName, {"#E69F00", 6}}, {nngName, {"#CC3311", 12}},       {dbusName, {"#661100", 4}},
    };
    const auto style = styles.find(peer);
    expect(style != styles.end(), "the plots have no colour for " + peer);
    return style->second;
}

struct Point {
    double x;
    double y;
};

struct Curve {
    std::string peer;
    std::vector<Point> points;
};

Point pointOf(const Plot& plot, const Record& record) {
    const auto payload = static_cast<double>(record.payload);
    return {plot.across == Plot::Across::payload ? payload : record.population,
            record.spreads.at(plot.figure).median * plot.scale * (plot.bytes ? payload : 1)};
}

double heightAt(const Curve& curve, double x) {
    double height = curve.points.front().y;
    for (const Point& point : curve.points) {
        if (point.x <= x) height = point.y;
    }
    return height;
}

/// In the order in which the curves leave the plot to the right, the highest first: so the legend stands beside them.
/// One that ends earlier comes before the first that is lower there.
std::vector<Curve> fromTopToBottom(std::vector<Curve> curves) {
    std::stable_sort(curves.begin(), curves.end(), [](const Curve& one, const Curve& other) {
        return one.points.back().x > other.points.back().x;
    });
    std::vector<Curve> ordered;
    for (Curve& curve : curves) {
        const Point end = curve.points.back();
        const auto isLower = [&](const Curve& other) { return heightAt(other, end.x) < end.y; };
        ordered.insert(std::find_if(ordered.begin(), ordered.end(), isLower), std::move(curve));
    }
    return ordered;
}

std::vector<Curve> curvesOf(const Plot& plot, const Records& records) {
    std::vector<Curve> curves;
    for (const Record& record : records) {
        if (record.scenario != plot.scenario || record.placement != plot.placement) continue;
        const auto same = [&](const Curve& curve) { return curve.peer == record.peer; };
        auto curve = std::find_if(curves.begin(), curves.end(), same);
        if (curve == curves.end()) curve = curves.insert(curves.end(), {record.peer, {}});
        curve->points.push_back(pointOf(plot, record));
    }
    return fromTopToBottom(std::move(curves));
}

struct Range {
    double least;
    double most;
};

/// A little more of a logarithmic axis than what stands on it.
Range rangeOf(const std::vector<Curve>& curves, double Point::*coordinate) {
    constexpr double margin = 1.25;
    Range range = {curves.front().points.front().*coordinate, 0};
    for (const Curve& curve : curves) {
        for (const Point& point : curve.points) {
            range = {std::min(range.least, point.*coordinate), std::max(range.most, point.*coordinate)};
        }
    }
    return {range.least / margin, range.most * margin};
}

/// The measured places, and no others.
std::string ticksAcross(const std::vector<Curve>& curves) {
    std::set<double> places;
    for (const Curve& curve : curves) {
        for (const Point& point : curve.points) places.insert(point.x);
    }
    std::ostringstream ticks;
    for (const double place : places) ticks << (place == *places.begin() ? "" : ", ") << place;
    return ticks.str();
}

/// 10, 10 k, 10 M.
std::string brief(double value) {
    const char* unit = "";
    for (const char* larger : {" k", " M", " G"}) {
        if (value < 1000) break;
        value /= 1000;
        unit = larger;
    }
    std::ostringstream text;
    text << value << unit;
    return text.str();
}

/// The powers of ten with their numbers, and what lies between them without.
std::string ticksUp(const Range& range) {
    std::ostringstream ticks;
    const char* comma = "";
    for (double decade = std::pow(10, std::floor(std::log10(range.least))); decade <= range.most; decade *= 10) {
        for (int times = 1; times < 10; ++times) {
            const double place = decade * times;
            if (place < range.least || place > range.most) continue;
            ticks << comma << '"' << (times == 1 ? brief(decade) : "") << "\" " << place
                  << (times == 1 ? " 0" : " 1");
            comma = ", ";
        }
    }
    return ticks.str();
}

void writeCurves(std::ostream& script, const std::vector<Curve>& curves) {
    for (std::size_t i = 0; i < curves.size(); ++i) {
        script << "$d" << i << " << EOD\n";
        for (const Point& point : curves[i].points) script << point.x << ' ' << point.y << '\n';
        script << "EOD\n";
    }
    for (std::size_t i = 0; i < curves.size(); ++i) {
        const Style style = styleOf(curves[i].peer);
        script << (i == 0 ? "plot " : ", ") << "$d" << i << " with linespoints lc rgb '" << style.colour << "' pt "
               << style.shape << " lw " << (curves[i].peer == linxIpcName ? 3 : 1.5) << " title '" << curves[i].peer
               << '\'';
    }
    script << '\n';
}

void writePlot(std::ostream& script, const Plot& plot, const std::string& directory,
               const std::vector<Curve>& curves) {
    const Range across = rangeOf(curves, &Point::x);
    const Range up = rangeOf(curves, &Point::y);
    script << "reset\nset terminal svg size 900,560 font 'sans,13' background 'white'\n"
           << "set output '" << directory << '/' << plot.file << ".svg'\nset title '" << plot.title << "'\n"
           << "set xlabel '" << (plot.across == Plot::Across::payload ? "payload, bytes" : "senders") << "'\n"
           << "set ylabel '" << plot.unit << "'\nset logscale xy\nset grid\nset key outside right Left reverse\n"
           << "set xrange [" << across.least << ':' << across.most << "]\nset xtics (" << ticksAcross(curves) << ")\n"
           << "set yrange [" << up.least << ':' << up.most << "]\nset ytics (" << ticksUp(up) << ")\n";
    writeCurves(script, curves);
}

}  // namespace

std::string plotScript(const std::string& directory, const Records& records) {
    std::ostringstream script;
    for (const Plot& plot : plots()) {
        const std::vector<Curve> curves = curvesOf(plot, records);
        if (!curves.empty()) writePlot(script, plot, directory, curves);
    }
    return script.str();
}

void drawPlots(const std::string& directory, const Records& records) {
    const std::string script = plotScript(directory, records);
    std::filesystem::create_directories(directory);
    FILE* gnuplot = popen("gnuplot", "w");
    check(gnuplot != nullptr, "gnuplot");
    std::fputs(script.c_str(), gnuplot);
    expect(pclose(gnuplot) == 0, "gnuplot has not drawn the plots");
}

}  // namespace bench
