#include "demo/nodes.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>

namespace demo {

namespace {

constexpr const char* linkHome = "toMain";  // as the other nodes call it

std::string textBefore(const std::string& text, std::size_t end) {
    return end == std::string::npos ? "" : text.substr(0, end);
}

/// Runs it. The line that it has written; empty when it failed.
std::string lineOf(const std::string& command) {
    char line[256] = "";
    std::FILE* const output = popen(command.c_str(), "r");
    if (output == nullptr) return "";
    const bool hasLine = std::fgets(line, sizeof line, output) != nullptr;
    const bool isDone = pclose(output) == 0;
    const std::string text = hasLine && isDone ? line : "";
    return textBefore(text, text.find('\n'));
}

std::string keyFileOf(e_Process link) {
    return nameOf(link) + ".key";
}

/// Of this demonstration alone: the launcher's number is part of it, which has 22 bits at most.
std::string address() {
    const auto host = static_cast<unsigned>(getpid());
    return "tcp://127." + std::to_string(64 + (host >> 16U & 63U)) + "." + std::to_string(host >> 8U & 255U) + "." +
           std::to_string(host & 255U) + ":7400";
}

std::string head(e_Process link, const std::string& domain) {
    return "key = \"" + keyFileOf(link) + "\"\ndomain = \"" + domainOf(link, domain) + "\"\n";
}

/// `name` is what stands on the near side of the slash.
std::string linkTable(const std::string& name, const std::string& key) {
    return "\n[[link]]\nname = \"" + name + "\"\npeer = \"" + key + "\"\n";
}

bool write(const std::string& path, const std::string& text) {
    std::ofstream file(path);
    file << text;
    return file.flush().good();
}

}  // namespace

bool isLink(e_Process process) {
    return std::find(links.begin(), links.end(), process) != links.end();
}

std::string linkTo(e_Process server) {
    return textBefore(nameOf(server), nameOf(server).find('/'));
}

std::string ownNameOf(e_Process server) {
    const std::string& name = nameOf(server);
    return name.substr(name.find('/') + 1);  // all of it where there is none
}

std::string domainOf(e_Process process, const std::string& domain) {
    const auto link = std::find(links.begin(), links.end(), process);
    if (link == links.begin()) return domain;
    const std::string node = linkTo(link == links.end() ? process : encoders[std::size_t(link - links.begin() - 1)]);
    return node.empty() ? domain : domain + '/' + node;
}

std::string configurationOf(e_Process link, const std::string& domain) {
    return domain + '/' + nameOf(link) + ".conf";
}

std::string layOutNodes(const std::string& domain, const std::string& program) {
    std::array<std::string, links.size()> keys;
    for (std::size_t i = 0; i < links.size(); ++i) {
        keys[i] = lineOf("'" + program + "' keygen '" + domain + '/' + keyFileOf(links[i]) + "'");
        if (keys[i].empty()) return "cannot make keys with " + program;
    }
    std::string ofMain = head(links[0], domain) + "listen = \"" + address() + "\"\n";
    for (std::size_t i = 1; i < links.size(); ++i) {
        const e_Process encoder = encoders[i - 1];
        // Exports nothing: whom the encoders answer, they know by what it has sent.
        ofMain += linkTable(linkTo(encoder), keys[i]);
        const std::string ofNode = head(links[i], domain) + linkTable(linkHome, keys[0]) + "connect = \"" +
                                   address() + "\"\nexport = [\"" + ownNameOf(encoder) +
                                   "\"]\nallow-control = true\n";
        std::error_code error;
        std::filesystem::create_directory(domainOf(links[i], domain), error);
        if (error || !write(configurationOf(links[i], domain), ofNode)) return "cannot lay out " + nameOf(encoder);
    }
    return write(configurationOf(links[0], domain), ofMain) ? "" : "cannot configure the links";
}

}  // namespace demo
