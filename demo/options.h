#ifndef LINXIPC_DEMO_OPTIONS_H
#define LINXIPC_DEMO_OPTIONS_H

#include <cstdint>
#include <string>

namespace demo {

/// What the command line decides.
struct Options {
    unsigned rounds = 1;       ///< how often the stream runs and GpsHal is killed
    unsigned payload = 49152;  ///< bytes of one stream
    std::uint64_t seed = 0;    ///< start order and content of the streams
    unsigned limit = 9;        ///< seconds until the demonstration gives up
    bool noColor = false;
    bool nodes = false;                      ///< with two other nodes, behind links
    std::string link;                        ///< the program of the links, for these
    std::string servers = "/proc/self/exe";  ///< the program that is executed for each server
};

constexpr unsigned maxRounds = 1000;
constexpr unsigned maxPayload = 1U << 20U;
constexpr unsigned maxLimit = 3600;

}  // namespace demo

#endif
