#ifndef LINXIPC_LINK_CONFIGURATION_CONFIGURATION_H
#define LINXIPC_LINK_CONFIGURATION_CONFIGURATION_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace linx::link {

/// One [[link]] of the configuration, as it stands there.
struct LinkConfiguration {
    std::string name;
    std::string peer;     ///< its public key
    std::string connect;  ///< empty: the peer is waited for
    std::vector<std::string> exports;
    std::vector<std::string> imports;
    bool transit = false;
    bool allowControl = false;
    uint32_t tolerance = 1500;  ///< milliseconds
    unsigned line = 0;
};

struct Configuration {
    std::string key;     ///< path of the file of the secret key
    std::string listen;  ///< empty: only dials
    std::string domain;  ///< empty: as for every other program
    std::vector<LinkConfiguration> links;
};

/// Something that is wrong with it, and what would be right.
struct Problem {
    unsigned line = 0;  ///< 0: nowhere in particular
    std::string text;
};
using Problems = std::vector<Problem>;

/// Paths in it are relative to `directory`. Nothing when there is any problem; all that are found are told.
std::optional<Configuration> parseConfiguration(const std::string& text, const std::string& directory,
                                                Problems& problems);
std::optional<Configuration> readConfiguration(const std::string& path, Problems& problems);

}  // namespace linx::link

#endif
