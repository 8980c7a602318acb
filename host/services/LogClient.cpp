#include "platform/LogClient.h"

#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <new>
#include <optional>
#include <sstream>
#include <string_view>

#include "host/system/log_mask.h"
#include "host/system/signal_shield.h"
#include "host/system/uninterrupted.h"

namespace {

constexpr unsigned lookupFailures = 1;
constexpr unsigned errors = 2;
constexpr unsigned sendFailures = 4;
constexpr unsigned notableEvents = 16;
constexpr unsigned shutdownRequests = 512;
constexpr unsigned defaultLevel = errors | notableEvents | shutdownRequests;
static_assert(defaultLevel == 530, "which is what is said where another is asked for in vain");

/// Callers log between a failure and their look at errno.
class KeepErrno {
public:
    KeepErrno() = default;
    ~KeepErrno() { errno = kept_; }
    KeepErrno(const KeepErrno&) = delete;
    KeepErrno& operator=(const KeepErrno&) = delete;

private:
    const int kept_ = errno;
};

enum class Echo { onTerminal, always, never };

std::string_view environment(const char* name) {
    const char* value = std::getenv(name);
    return value == nullptr ? std::string_view() : std::string_view(value);
}

/// The mask that the text is; no mask when it is none.
std::optional<unsigned> levelFrom(std::string_view text) {
    int base = 10;
    if (text.substr(0, 2) == "0x" || text.substr(0, 2) == "0X") {
        text.remove_prefix(2);
        base = 16;
    }
    unsigned level = 0;
    const char* end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, level, base);
    return parsed.ec == std::errc() && parsed.ptr == end ? std::optional<unsigned>(level) : std::nullopt;
}

std::optional<Echo> echoFrom(std::string_view text) {
    if (text == "stderr") return Echo::always;
    if (text == "syslog") return Echo::never;
    return std::nullopt;
}

bool echoWanted() {
    static const Echo echo = echoFrom(environment("LINX_LOG")).value_or(Echo::onTerminal);
    return echo == Echo::always || (echo == Echo::onTerminal && isatty(STDERR_FILENO) == 1);
}

int priorityOf(unsigned level) {
    if (level & errors) return LOG_ERR;
    if (level & (lookupFailures | sendFailures)) return LOG_WARNING;
    if (level & (notableEvents | shutdownRequests)) return LOG_NOTICE;
    return LOG_DEBUG;
}

/// One write per line, so that lines of processes that share a terminal or a pipe do not mix. What does not fit into
/// a full, non-blocking pipe is left to syslog, which has it too. A pipe without a reader must not end the process.
void writeToStandardError(const std::string& line) {
    linx::SignalShield shield(SIGPIPE);
    const ssize_t written = linx::uninterrupted([&] { return write(STDERR_FILENO, line.data(), line.size()); });
    if (written == -1 && errno == EPIPE) shield.raised();
}

}  // namespace

struct LogClient::Settings {
    unsigned level = levelFrom(environment("LINX_LOG_LEVEL")).value_or(defaultLevel);
    std::string processName = program_invocation_short_name;
};

LogClient::LogClient() : settings(std::make_unique<Settings>()) {}

LogClient::~LogClient() = default;

namespace {

/// Logs that a variable has an invalid value. Out of memory, nothing is logged.
void tellOf(const LogClient& client, const char* name, const char* insteadOf) {
    if ((client.Level() & errors) == 0) return;
    try {
        SysLogMsg message;
        message.Log(errors, client.ProcessName())
            << "linxhost: " << name << " is '" << environment(name) << "', which is " << insteadOf;
    } catch (const std::bad_alloc&) {
    }
}

bool tellOfBadValues(const LogClient& client) {
    const auto isBad = [](const char* name, const auto& value) { return !environment(name).empty() && !value; };
    if (isBad("LINX_LOG_LEVEL", levelFrom(environment("LINX_LOG_LEVEL")))) {
        tellOf(client, "LINX_LOG_LEVEL", "no mask: 530 is taken");
    }
    if (isBad("LINX_LOG", echoFrom(environment("LINX_LOG")))) {
        tellOf(client, "LINX_LOG", "neither stderr nor syslog: standard error is used where it is a terminal");
    }
    return true;
}

}  // namespace

LogClient* LogClient::Instance() {
    const KeepErrno keepErrno;
    // Never destroyed: destructors of static objects may log.
    static LogClient* const client = new LogClient;
    static const bool told = tellOfBadValues(*client);
    static_cast<void>(told);
    return client;
}

unsigned LogClient::Level() const {
    std::uint32_t chosen = 0;
    return linx::log_mask::get(chosen) ? chosen : settings->level;
}

const std::string& LogClient::ProcessName() const {
    return settings->processName;
}

struct LogMsg::Line {
    Line(unsigned lineLevel, const std::string& lineProcess) : level(lineLevel), process(lineProcess) {}

    unsigned level;
    std::string process;
    std::ostringstream text;
};

LogMsg::LogMsg() = default;

LogMsg::~LogMsg() = default;

std::ostream& LogMsg::Log(unsigned level, const std::string& process) {
    const KeepErrno keepErrno;
    if (!line) {
        line = std::make_unique<Line>(level, process);
    } else {
        line->process = process;
        line->level = level;
    }
    return line->text;
}

SysLogMsg::SysLogMsg() = default;

SysLogMsg::~SysLogMsg() {
    if (!line) return;
    const KeepErrno keepErrno;
    try {
        const std::string text = line->text.str();
        const std::string echo = echoWanted() ? line->process + ": " + text + "\n" : std::string();
        // No process name here: syslog puts it before the text itself.
        syslog(priorityOf(line->level), "%s", text.c_str());
        if (!echo.empty()) writeToStandardError(echo);
    } catch (const std::bad_alloc&) {
        // Thrown out of a destructor it would end the process: the line is dropped.
    }
}
