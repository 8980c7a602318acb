#include "tests/demo/demonstration.h"

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <sstream>

namespace {

/// Seconds in which a run ends, however busy the machine; one that hangs tells so before CTest ends the test.
constexpr const char* ample = "100";

}  // namespace

Demonstration::Demonstration(std::vector<std::string> arguments, Output kind) {
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    if (std::find(arguments.begin(), arguments.end(), "--limit") == arguments.end()) {
        arguments.insert(arguments.end(), {"--limit", ample});
    }
    const Ends ends = kind == Output::terminal ? openTerminal() : openPipe();
    output_ = ends.read;
    launcher_.emplace(LINX_DEMO, arguments, Program::Streams{-1, ends.write, ends.write}, Program::Group::own);
    close(ends.write);
}

Demonstration::~Demonstration() {
    if (output_ != -1) close(output_);
    launcher_.reset();
    waitForAllProcesses();
    std::error_code error;
    if (!domain().empty()) std::filesystem::remove_all(domain(), error);
}

bool Demonstration::waitFor(const std::string& wanted) {
    while (text_.find(wanted) == std::string::npos) {
        if (!readMore()) return false;
    }
    return true;
}

void Demonstration::stopReading() {
    close(output_);
    output_ = -1;
}

int Demonstration::finish() {
    while (readMore()) {
    }
    return launcher_->awaitEnd();
}

std::vector<std::string> Demonstration::lines() const {
    std::vector<std::string> lines;
    std::istringstream stream(text_);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

pid_t Demonstration::server(const std::string& name) const {
    const std::string before = "starts " + name + ", process ";
    const auto at = text_.find(before);
    return at == std::string::npos ? 0 : static_cast<pid_t>(std::atoi(text_.c_str() + at + before.size()));
}

std::string Demonstration::domain() const {
    const std::string before = "domain /";
    const auto at = text_.find(before);
    if (at == std::string::npos) return {};
    const auto begin = at + before.size() - 1;
    return text_.substr(begin, text_.find(',', begin) - begin);
}

bool Demonstration::domainExists() const {
    return std::filesystem::exists(domain());
}

bool Demonstration::readMore() {
    if (output_ == -1) return false;
    char bytes[4096];
    ssize_t count = -1;
    do count = read(output_, bytes, sizeof bytes);
    while (count == -1 && errno == EINTR);
    if (count <= 0) return false;
    text_.append(bytes, static_cast<std::size_t>(count));
    return true;
}

bool processesLeft() {
    return waitpid(-1, nullptr, WNOHANG) != -1 || errno != ECHILD;
}

void waitForAllProcesses() {
    while (waitpid(-1, nullptr, 0) != -1 || errno == EINTR) {
    }
}
