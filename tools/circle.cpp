#include "tools/circle.h"

#include <algorithm>
#include <complex>
#include <cstdio>
#include <map>

#include "tools/page.h"
#include "tools/text.h"

namespace tools {
namespace {

constexpr double pi = 3.14159265358979323846;
constexpr double leastRadius = 150;
constexpr double roomForNode = 26;  ///< on the circle
constexpr double widthOfCharacter = 7.5;

struct Point {
    double x;
    double y;
};

/// Where an angle lies on the circle of radius one, to seven digits: a small part of the angle, doubled ten times. Without
/// the machine's own cosine, because not every emulator knows the instructions of that.
Point onUnitCircle(double angle) {
    const double part = angle / 1024;
    std::complex<double> point(1 - part * part / 2, part - part * part * part / 6);
    for (int doubled = 0; doubled < 10; ++doubled) point *= point;
    return {point.real(), point.imag()};
}

std::string textOf(Point point) {
    char text[64];
    std::snprintf(text, sizeof text, "%.1f,%.1f", point.x, point.y);
    return text;
}

std::string labelOf(const std::string& name) {
    return shortened(printable(name), longestLabel);
}

class Circle {
public:
    explicit Circle(const Graph& graph) : graph_(graph) {
        const auto count = static_cast<double>(graph.nodes.size());
        radius_ = std::max(leastRadius, count * roomForNode / (2 * pi));
        for (size_t i = 0; i < graph.nodes.size(); ++i) {
            const std::string& name = graph.nodes[i].name;
            angles_[name] = 2 * pi * static_cast<double>(i) / count;
            margin_ = std::max(margin_, static_cast<double>(widthOf(labelOf(name))) * widthOfCharacter + 20);
        }
    }

    std::string draw() const {
        const double half = radius_ + margin_;
        char head[200];
        std::snprintf(head, sizeof head,
                      "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%.0f\" height=\"%.0f\" viewBox=\"%.0f %.0f "
                      "%.0f %.0f\" role=\"img\">\n",
                      2 * half, 2 * half, -half, -half, 2 * half, 2 * half);
        std::string text = head;
        text += marker("arrow") + marker("arrow-cycle");
        for (const Graph::Traffic& edge : graph_.traffic) text += drawn(edge);
        for (const NamedWait& edge : graph_.waits.edges) text += drawn(edge);
        for (const Graph::Node& node : graph_.nodes) text += drawn(node);
        return text + "</svg>\n";
    }

private:
    static std::string marker(const std::string& id) {
        return "<marker id=\"" + id +
               "\" viewBox=\"0 0 10 10\" refX=\"10\" refY=\"5\" markerWidth=\"9\" markerHeight=\"9\" "
               "markerUnits=\"userSpaceOnUse\" orient=\"auto\"><path d=\"M0,0 L10,5 L0,10 z\"/></marker>\n";
    }

    static Point at(double angle, double radius) {
        const Point unit = onUnitCircle(angle);
        return {radius * unit.x, radius * unit.y};
    }

    std::string drawn(const Graph::Traffic& edge) const {
        const size_t digits = std::to_string(edge.all.signals).size();
        const auto width = static_cast<double>(std::min<size_t>(digits, 4));
        return drawn(edge.from, edge.to, "sent", width, numbersOf(edge));
    }
    std::string drawn(const NamedWait& edge) const {
        return drawn(edge.from, edge.to, edge.isInCycle ? "waits cycle" : "waits", 1.5,
                     "waits for " + std::to_string(edge.number) + " for " + humanSeconds(edge.seconds));
    }

    /// Bent towards the middle, waits more, so that they are not hidden behind what was sent; and a little to the
    /// side, so that the two directions are apart.
    std::string drawn(const std::string& from, const std::string& to, const std::string& kind, double width,
                      const std::string& what) const {
        const double begin = angles_.at(from), end = angles_.at(to);
        const double inner = radius_ - 7;
        const bool isWait = kind != "sent";
        std::string path = "M" + textOf(at(begin, inner)) + " ";
        if (from == to) {
            path += "C" + textOf(at(begin - 0.3, inner - 50)) + " " + textOf(at(begin + 0.3, inner - 50)) + " ";
        } else {
            const Point a = at(begin, inner), b = at(end, inner);
            const double bend = isWait ? 0.2 : 0.4;
            const Point side{(b.y - a.y) * 0.08, (a.x - b.x) * 0.08};
            path += "Q" + textOf({(a.x + b.x) / 2 * bend + side.x, (a.y + b.y) / 2 * bend + side.y}) + " ";
        }
        path += textOf(at(end, inner));
        char stroke[32];
        std::snprintf(stroke, sizeof stroke, "%.1f", width);
        const bool isCycle = kind == "waits cycle";
        return "<g class=\"edge " + kind + "\"><title>" +
               escaped(printable(from) + " -> " + printable(to) + ": " + what) + "</title><path d=\"" + path +
               "\" stroke-width=\"" + stroke + "\" fill=\"none\"" + (isWait ? " stroke-dasharray=\"5,3\"" : "") +
               " marker-end=\"url(#" + (isCycle ? "arrow-cycle" : "arrow") + ")\"/></g>\n";
    }

    /// The name goes outwards, and never stands on its head.
    std::string drawn(const Graph::Node& node) const {
        const double angle = angles_.at(node.name);
        const Point dot = at(angle, radius_);
        const bool isLeft = dot.x < -1e-3;
        char text[256];
        std::snprintf(text, sizeof text,
                      "<circle cx=\"%.1f\" cy=\"%.1f\" r=\"5\"/><text transform=\"rotate(%.1f) translate(%.1f,4)\" "
                      "text-anchor=\"%s\">",
                      dot.x, dot.y, angle * 180 / pi + (isLeft ? 180 : 0), (radius_ + 10) * (isLeft ? -1 : 1),
                      isLeft ? "end" : "start");
        return "<g class=\"node " + node.state + "\"><title>" + escaped(printable(node.name)) + ": " + node.state +
               "</title>" + text + escaped(labelOf(node.name)) + "</text></g>\n";
    }

    const Graph& graph_;
    double radius_ = 0;
    double margin_ = 0;
    std::map<std::string, double> angles_;
};

}  // namespace

std::string drawnOnCircle(const Graph& graph) {
    return Circle(graph).draw();
}

}  // namespace tools
