#ifndef LINXIPC_TOOLS_OPTIONS_H
#define LINXIPC_TOOLS_OPTIONS_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tools {

/// What every verb may be told.
struct Options {
    bool json = false;
    std::optional<uint32_t> count;                     ///< rows at most
    std::optional<std::chrono::milliseconds> timeout;  ///< none: as the verb thinks fit
    std::optional<std::chrono::milliseconds> since;    ///< how long ago events were, at most; none: all
    std::string arena;                                 ///< a file to be read instead of a domain
};

struct ListOptions {
    bool all = false;  ///< with those that have ended
};

struct LogOptions {
    std::string name;
    std::optional<uint32_t> level;  ///< none: it is only shown
};

struct TopOptions {
    std::chrono::milliseconds interval{1000};
};

struct WaitsOptions {
    bool dot = false;  ///< for Graphviz
};

struct GraphOptions {
    std::vector<std::string> names;
    bool dot = false;  ///< for Graphviz
};

/// At most one of these.
struct PayloadOptions {
    std::optional<std::string> text;
    std::optional<std::string> hex;
    std::vector<uint32_t> words;
    std::optional<std::string> file;
    bool standardInput = false;
};

struct SendOptions {
    std::string name;
    uint32_t number = 0;
    PayloadOptions payload;
};

struct CallOptions {
    SendOptions request;
    uint32_t reply = 0;
};

struct WaitOptions {
    std::string name;
    bool gone = false;
};

/// Which signals; all that is said holds together.
struct WatchOptions {
    std::vector<std::string> names;  ///< either end is one of these; none: all
    std::vector<uint32_t> numbers;   ///< likewise
    std::optional<std::string> from;
    std::optional<std::string> to;
    uint32_t snaplen = 0;  ///< bytes of each payload, at most
};

struct CaptureOptions {
    WatchOptions watch;
    std::string output;  ///< a file, or - for standard output
    bool quiet = false;  ///< what it came to is said in the file alone
};

struct ReplayOptions {
    std::string capture;
    std::optional<std::string> to;  ///< none: to whom it was sent
    double pace = 1;                ///< so many times as fast as it was captured; 0: as fast as possible
};

}  // namespace tools

#endif
