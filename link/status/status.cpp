#include "link/status/status.h"

#include <sstream>

namespace linx::link {
namespace {

/// Numbers of a status by their words.
constexpr std::pair<const char*, uint64_t Status::*> numbers[] = {
    {"seconds", &Status::seconds}, {"word-bits", &Status::wordBits}, {"round-trip", &Status::roundTrip},
    {"window", &Status::window},   {"in-flight", &Status::inFlight}, {"waiting", &Status::waiting},
    {"lost", &Status::lost}};
constexpr std::pair<const char*, std::string Status::*> texts[] = {{"state", &Status::state},
                                                                   {"reason", &Status::reason},
                                                                   {"peer", &Status::peer},
                                                                   {"byte-order", &Status::byteOrder}};

/// On one line, whatever is in it: others have chosen the names.
std::string onOneLine(const std::string& text) {
    std::string line;
    for (const char c : text) line += c == '\n' ? "\\n" : c == '\\' ? "\\\\" : std::string(1, c);
    return line;
}

/// The rest of a line, behind the blank, as it was before.
std::string restOf(std::istream& line) {
    std::string rest;
    line.get();
    for (char c; line.get(c);) {
        const bool isEscaped = c == '\\' && line.get(c);
        rest += isEscaped && c == 'n' ? '\n' : c;
    }
    return rest;
}

/// False for a line that is none. Words that are not known are left out: a newer link may say more.
bool take(const std::string& text, Status& status) {
    std::istringstream line(text);
    std::string word;
    line >> word;
    for (const auto& [name, member] : numbers) {
        if (word == name) return static_cast<bool>(line >> status.*member);
    }
    for (const auto& [name, member] : texts) {
        if (word == name) status.*member = restOf(line);
    }
    if (word == "denied") status.denied.push_back(restOf(line));
    if (word == "refused") {
        uint64_t count = 0;
        if (!(line >> count)) return false;
        status.refused[restOf(line)] = count;
    }
    if (word == "destination") {
        Status::Destination one;
        if (!(line >> one.signals >> one.bytes >> one.credit)) return false;
        one.name = restOf(line);
        status.destinations.push_back(one);
    }
    return true;
}

}  // namespace

std::string textOf(const Status& status) {
    std::ostringstream text;
    for (const auto& [name, member] : texts) text << name << ' ' << onOneLine(status.*member) << '\n';
    for (const auto& [name, member] : numbers) text << name << ' ' << status.*member << '\n';
    for (const std::string& name : status.denied) text << "denied " << onOneLine(name) << '\n';
    for (const auto& [reason, count] : status.refused)
        text << "refused " << count << ' ' << onOneLine(reason) << '\n';
    for (const Status::Destination& one : status.destinations) {
        text << "destination " << one.signals << ' ' << one.bytes << ' ' << one.credit << ' ' << onOneLine(one.name)
             << '\n';
    }
    return text.str();
}

std::optional<Status> statusFrom(const std::string& text) {
    Status status;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (!take(line, status)) return std::nullopt;
    }
    if (status.state != "up" && status.state != "connecting" && status.state != "down") return std::nullopt;
    return status;
}

}  // namespace linx::link
