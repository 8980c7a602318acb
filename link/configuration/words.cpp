#include "link/configuration/words.h"

#include <arpa/inet.h>

#include <algorithm>
#include <charconv>
#include <numeric>

#include "link/engine/key_text.h"
#include "link/session/messages.h"

namespace linx::link {
namespace {

bool isNumericHost(const std::string& host, Use use) {
    if (host == "*") return use == Use::listen;
    in6_addr place = {};
    if (host.size() < 2 || host.front() != '[' || host.back() != ']')
        return inet_pton(AF_INET, host.c_str(), &place) == 1;
    const std::string inside = host.substr(1, host.size() - 2);
    const std::string plain = inside.substr(0, inside.find('%'));  // without the interface
    return inet_pton(AF_INET6, plain.c_str(), &place) == 1;
}

bool isPort(const std::string& text) {
    unsigned port = 0;
    const char* const end = text.data() + text.size();
    const auto read = std::from_chars(text.data(), end, port);
    return read.ec == std::errc() && read.ptr == end && port >= 1 && port <= 65535;
}

std::string troubleWithName(const std::string& name) {
    if (isName(name)) return {};
    if (name.empty()) return "is empty: a name has 1 to " + std::to_string(longestName) + " bytes";
    if (name.size() > longestName) return "is too long: a name has at most " + std::to_string(longestName) + " bytes";
    return "has a zero byte in it, which no name has";
}

/// The letters that have to be put in, left out or changed to make the one of the other.
size_t distance(const std::string& a, const std::string& b) {
    std::vector<size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), size_t(0));
    for (size_t i = 0; i < a.size(); ++i) {
        size_t diagonal = row[0]++;
        for (size_t j = 0; j < b.size(); ++j) {
            const size_t changed = diagonal + (a[i] == b[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({changed, row[j] + 1, diagonal + 1});
        }
    }
    return row.back();
}

}  // namespace

std::string troubleWithAddress(const std::string& address, Use use) {
    static const std::string scheme = "tcp://";
    const std::string right =
        use == Use::listen
            ? "has to be tcp://ADDRESS:PORT, such as \"tcp://0.0.0.0:7400\" or \"tcp://[::1]:7400\""
            : "has to be tcp://ADDRESS:PORT, such as \"tcp://10.0.0.2:7400\" or \"tcp://[fd00::2]:7400\"";
    const size_t colon = address.rfind(':');
    if (address.compare(0, scheme.size(), scheme) != 0 || colon < scheme.size()) return right;
    if (!isPort(address.substr(colon + 1))) return right + ", with a port of 1 to 65535";
    if (!isNumericHost(address.substr(scheme.size(), colon - scheme.size()), use)) {
        return right + "; the address in numbers, as no names are looked up";
    }
    return {};
}

std::string troubleWithPath(const std::string& path) {
    const bool isPath = !path.empty() && path.find('\0') == std::string::npos;
    return isPath ? "" : "is no path";
}

std::string troubleWithKey(const std::string& key) {
    if (isKeyText(key)) return {};
    return "is no public key: that is the line of 40 characters which \"linx-link keygen\" prints over there";
}

std::string troubleWithLinkName(const std::string& name) {
    if (name.find('/') == std::string::npos) return troubleWithName(name);
    return "has a slash in it; the link \"toVp0\" leads to toVp0/NAME";
}

std::string troubleWithImport(const std::string& name) {
    if (name.find('*') == std::string::npos) return troubleWithName(name);
    return "has a star in it; what is imported is named in full";
}

std::string troubleWithExport(const std::string& pattern) {
    const size_t star = pattern.find('*');
    if (star == std::string::npos || star + 1 == pattern.size()) return troubleWithName(pattern);
    return "has a star before its end; it has to be a NAME, or a PREFIX*";
}

std::string nearest(const std::string& word, const std::vector<std::string>& known) {
    constexpr size_t farthest = 2;
    std::string found;
    size_t best = farthest + 1;
    for (const std::string& candidate : known) {
        const size_t far = distance(word, candidate);
        if (far < best) {
            best = far;
            found = candidate;
        }
    }
    return found;
}

}  // namespace linx::link
