#include "link/configuration/configuration.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <map>

#include "host/system/scoped_descriptor.h"
#include "link/configuration/table_reader.h"
#include "link/configuration/words.h"
#include "link/session/settings.h"

namespace linx::link {
namespace {

LinkConfiguration readLink(const toml::table& table, bool listens, Problems& problems) {
    TableReader reader(table, "[[link]]", problems);
    LinkConfiguration link;
    link.line = reader.line();
    link.name = reader.neededText("name", "name = \"toVp0\"", troubleWithLinkName);
    link.peer =
        reader.neededText("peer", "peer = \"KEY\", with what \"linx-link keygen\" prints over there", troubleWithKey);
    link.connect = reader.text("connect", "connect = \"tcp://10.0.0.2:7400\"",
                               [](const std::string& address) { return troubleWithAddress(address, Use::connect); });
    link.exports = reader.texts("export", "export = [\"StateMgr\", \"ts*\"]", troubleWithExport);
    link.imports = reader.texts("import", "import = [\"EncodeCtrl\"]", troubleWithImport);
    link.transit = reader.flag("transit");
    link.allowControl = reader.flag("allow-control");
    link.tolerance = static_cast<uint32_t>(reader.number("tolerance", leastTolerance, mostTolerance, link.tolerance));
    reader.refuseOthers();
    if (!listens && !table.contains("connect")) {
        problems.push_back({link.line,
                            "[[link]] has no connect, and nothing listens for its peer; write such as: connect = "
                            "\"tcp://10.0.0.2:7400\", or listen = \"tcp://0.0.0.0:7400\" above all links"});
    }
    if (link.imports.size() > mostSeeks) {
        problems.push_back({link.line, "import has more than " + std::to_string(mostSeeks) + " names"});
    }
    return link;
}

/// What each link must have for itself.
void refuseTwins(const std::vector<LinkConfiguration>& links, const char* key, std::string LinkConfiguration::*value,
                 Problems& problems) {
    std::map<std::string, unsigned> lines;
    for (const LinkConfiguration& link : links) {
        if ((link.*value).empty()) continue;
        const auto [first, isNew] = lines.emplace(link.*value, link.line);
        if (isNew) continue;
        problems.push_back({link.line, std::string("two links have the ") + key + " \"" + link.*value +
                                           "\", this one and that of line " + std::to_string(first->second)});
    }
}

std::string wholePath(const std::string& directory, const std::string& path) {
    return path.empty() ? path : (std::filesystem::path(directory) / path).string();
}

Configuration readAll(const toml::table& whole, const std::string& directory, Problems& problems) {
    TableReader reader(whole, "the configuration", problems);
    Configuration configuration;
    configuration.key = wholePath(directory, reader.neededText("key", "key = \"link.key\"", troubleWithPath));
    configuration.listen = reader.text("listen", "listen = \"tcp://0.0.0.0:7400\"", [](const std::string& address) {
        return troubleWithAddress(address, Use::listen);
    });
    configuration.domain = reader.text("domain", "domain = \"/dev/shm/linx.main\"", troubleWithPath);
    const std::vector<const toml::table*> links = reader.tables("link");
    reader.refuseOthers();
    for (const toml::table* link : links) {
        configuration.links.push_back(readLink(*link, whole.contains("listen"), problems));
    }
    if (!whole.contains("link")) problems.push_back({0, "there is no link; each begins with a line [[link]]"});
    refuseTwins(configuration.links, "name", &LinkConfiguration::name, problems);
    refuseTwins(configuration.links, "peer", &LinkConfiguration::peer, problems);
    return configuration;
}

/// False with errno; also for what is too large to be a configuration, or has no end.
bool readWhole(const std::string& path, std::string& text) {
    constexpr size_t most = 1024 * 1024;
    const ScopedDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY));
    text.resize(most);
    size_t size = 0;
    ssize_t part = file.get() == -1 ? -1 : 1;
    while (part > 0 && size < most) {
        part = read(file.get(), &text[size], most - size);
        if (part > 0) size += static_cast<size_t>(part);
    }
    text.resize(size);
    if (size == most) errno = EFBIG;
    return part != -1 && size < most;
}

}  // namespace

std::optional<Configuration> parseConfiguration(const std::string& text, const std::string& directory,
                                                Problems& problems) {
    Configuration configuration;
    try {
        configuration = readAll(toml::parse(text), directory, problems);
    } catch (const toml::parse_error& error) {
        const unsigned line = static_cast<unsigned>(error.source().begin.line);
        problems.push_back({line, "this is not TOML: " + std::string(error.description()) +
                                      "; each line is KEY = VALUE, with texts in quotes, or [[link]]"});
    }
    const auto isEarlier = [](const Problem& a, const Problem& b) { return a.line < b.line; };
    std::stable_sort(problems.begin(), problems.end(), isEarlier);
    return problems.empty() ? std::optional(std::move(configuration)) : std::nullopt;
}

std::optional<Configuration> readConfiguration(const std::string& path, Problems& problems) {
    std::string text;
    if (!readWhole(path, text)) {
        problems.push_back({0, std::string("cannot be read: ") + std::strerror(errno)});
        return std::nullopt;
    }
    return parseConfiguration(text, std::filesystem::path(path).parent_path().string(), problems);
}

}  // namespace linx::link
