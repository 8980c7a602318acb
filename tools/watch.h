#ifndef LINXIPC_TOOLS_WATCH_H
#define LINXIPC_TOOLS_WATCH_H

#include <chrono>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <unordered_map>

#include "inspect/place.h"
#include "inspect/tap.h"
#include "tools/captured.h"
#include "tools/options.h"

namespace tools {

/// Where signals go as they are watched.
class Sink {
public:
    virtual ~Sink() = default;
    virtual void put(const Captured& signal) = 0;
    virtual void finish(const Tally&) {}
};

/// A line of JSON each.
class JsonSink : public Sink {
public:
    explicit JsonSink(std::FILE* file) : file_(file) {}
    void put(const Captured& signal) override;

private:
    std::FILE* file_;
};

/// The signals that are sent in a domain, while this object lives. It has the domain's tap.
class Watch {
public:
    /// Throws a Failure where the domain cannot be watched.
    Watch(const Options& options, const WatchOptions& what);

    /// The directory that is watched.
    const std::string& domain() const { return place_.path(); }

    /// Whether a POSIX signal has asked for the end, before or while it runs.
    static bool isStopped();

    /// Puts signals into the sink, which writes to `output`, until there are as many as were asked for, time has run
    /// out, a POSIX signal asks for the end, or whoever read the output has gone. Throws a Failure when the output
    /// cannot be written.
    Tally run(std::FILE* output, const std::string& outputName, Sink& sink);

    /// Throws a Failure when time ran out before there were as many as were asked for.
    void requireEnough(const Tally& tally) const;

private:
    using Clock = std::chrono::steady_clock;

    bool isLate() const { return end_ && Clock::now() >= *end_; }
    bool isEnough(const Tally& tally) const { return count_ && tally.captured >= *count_; }
    bool isWanted(const Captured& signal) const;
    Captured withNames(linx::inspect::Sent&& sent);
    const std::string& nameOf(linx::Spid spid);
    void put(linx::inspect::Sent&& sent, Sink& sink, Tally& tally);

    const std::optional<uint32_t> count_;
    const WatchOptions& what_;
    std::optional<Clock::time_point> end_;
    linx::inspect::Place place_;
    std::unique_ptr<linx::inspect::Tap> tap_;
    std::unordered_map<linx::Spid, std::string> names_;
};

}  // namespace tools

#endif
