#include "tools/text.h"

#include <pwd.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <map>
#include <nlohmann/json.hpp>

#include "host/system/clock.h"
#include "tools/failure.h"

namespace tools {
namespace {

constexpr char digits[] = "0123456789abcdef";

/// How many bytes the character at `at` has that a terminal may be shown; 0 when there is none.
size_t characterLength(const std::string& text, size_t at) {
    const auto byte = [&](size_t i) { return static_cast<unsigned char>(i < text.size() ? text[i] : 0); };
    const unsigned first = byte(at);
    if (first < 0x80) return first < 0x20 || first == 0x7f ? 0 : 1;
    const size_t length = first >= 0xf5 ? 0 : first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : first >= 0xc2 ? 2 : 0;
    for (size_t i = 1; i < length; ++i) {
        if ((byte(at + i) & 0xc0u) != 0x80) return 0;
    }
    const unsigned second = byte(at + 1);
    const unsigned third = byte(at + 2);
    // Of two bytes and below 0xa0: control characters. Overlong, surrogates, beyond the last, U+FFFE and U+FFFF:
    // none.
    const bool isNone = (first == 0xc2 && second < 0xa0) || (first == 0xe0 && second < 0xa0) ||
                        (first == 0xed && second >= 0xa0) || (first == 0xf0 && second < 0x90) ||
                        (first == 0xf4 && second >= 0x90) || (first == 0xef && second == 0xbf && third >= 0xbe);
    // Those that turn round the direction of all that follows, up to U+202E and up to U+2069.
    const bool turns = first == 0xe2 && ((second == 0x80 && third >= 0xaa && third <= 0xae) ||
                                         (second == 0x81 && third >= 0xa6 && third <= 0xa9));
    if (turns) return 0;
    return isNone ? 0 : length;
}

}  // namespace

std::string printable(const std::string& text) {
    std::string result;
    for (size_t at = 0; at < text.size();) {
        const size_t length = characterLength(text, at);
        if (length != 0) {
            result.append(text, at, length);
        } else {
            const auto byte = static_cast<unsigned char>(text[at]);
            result += {'\\', 'x', digits[byte >> 4], digits[byte & 15]};
        }
        at += length == 0 ? 1 : length;
    }
    return result;
}

std::string shortened(const std::string& text, size_t most) {
    if (widthOf(text) <= most) return text;
    size_t end = 0;
    for (size_t shown = 0; shown < most; ++shown) end += characterLength(text, end);
    return text.substr(0, end) + "\xe2\x80\xa6";
}

size_t widthOf(const std::string& text) {
    return static_cast<size_t>(std::count_if(text.begin(), text.end(),
                                             [](char c) { return (static_cast<unsigned char>(c) & 0xc0u) != 0x80; }));
}

std::string hexadecimal(linx::Spid spid) {
    char text[16];
    std::snprintf(text, sizeof text, "%08x", linx::numberOf(spid));
    return text;
}

std::string hexadecimal(const std::vector<unsigned char>& bytes) {
    std::string text;
    for (const unsigned char byte : bytes) text += {digits[byte >> 4], digits[byte & 15]};
    return text;
}

std::string shellWord(const std::string& text) {
    const auto isPlain = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               (c != 0 && std::strchr("_./:@%+,=-", c) != nullptr);
    };
    if (!text.empty() && text.front() != '-' && std::all_of(text.begin(), text.end(), isPlain)) return text;
    std::string word = "'";
    for (const char c : text) word += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return word + "'";
}

std::string nameWord(const std::string& name) {
    return (name.rfind('-', 0) == 0 ? "-- " : "") + shellWord(name);
}

std::string humanBytes(uint64_t bytes) {
    constexpr const char* units[] = {"B", "KiB", "MiB", "GiB"};
    if (bytes < 1024) return std::to_string(bytes) + " B";
    size_t unit = 0;
    auto value = static_cast<double>(bytes);
    for (; value >= 1024 && unit < 3; ++unit) value /= 1024;
    char text[32];
    std::snprintf(text, sizeof text, "%.1f %s", value, units[unit]);
    return text;
}

std::string humanSeconds(double seconds) {
    char text[32];
    if (seconds < 60) {
        std::snprintf(text, sizeof text, seconds < 9.995 ? "%.2f s" : "%.0f s", seconds);
    } else {
        const auto minutes = static_cast<uint64_t>(seconds / 60);
        if (minutes < 60) return std::to_string(minutes) + " min";
        std::snprintf(text, sizeof text, "%ju h %ju min", static_cast<uintmax_t>(minutes / 60),
                      static_cast<uintmax_t>(minutes % 60));
    }
    return text;
}

double secondsSince(uint64_t nanoseconds) {
    const uint64_t now = linx::now();
    return now < nanoseconds ? 0 : static_cast<double>(now - nanoseconds) / 1e9;
}

std::string worldTime(uint64_t nanoseconds) {
    constexpr uint64_t second = 1000000000;
    const auto seconds = static_cast<time_t>(nanoseconds / second);
    std::tm parts = {};
    char text[64];
    if (gmtime_r(&seconds, &parts) == nullptr) return std::to_string(nanoseconds);
    const size_t length = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts);
    std::snprintf(text + length, sizeof text - length, ".%09uZ", static_cast<unsigned>(nanoseconds % second));
    return text;
}

std::string dotWord(const std::string& text) {
    std::string word = "\"";
    for (const char c : printable(text)) {
        if (c == '"' || c == '\\') word += '\\';
        word += c;
        if (c == '&') word += "amp;";  // or what follows may be read as a character's name
    }
    return word + "\"";
}

std::string userName(uid_t user) {
    static std::map<uid_t, std::string> known;  // asking takes the system longer than everything else here
    const auto found = known.find(user);
    if (found != known.end()) return found->second;
    const passwd* entry = getpwuid(user);
    return known[user] = entry == nullptr ? std::to_string(user) : entry->pw_name;
}

std::string describe(const std::string& name, const std::optional<linx::inspect::Process>& process) {
    return printable(name) + (process ? ", process " + std::to_string(process->pid) : "");
}

void printLine(const std::string& line) {
    std::fputs((line + "\n").c_str(), stdout);
}

void finishOutput() {
    // Somebody may have had enough: a pipe into `head` is no failure worth a word.
    const bool failed = std::fflush(stdout) != 0 || std::ferror(stdout) != 0;
    if (failed && errno != EPIPE) {
        throw Failure(refused, std::string("the output cannot be written: ") + std::strerror(errno));
    }
}

std::string textOf(const nlohmann::ordered_json& document) {
    return document.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

void printJson(const nlohmann::ordered_json& document) {
    printLine(textOf(document));
}

}  // namespace tools
