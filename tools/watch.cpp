#include "tools/watch.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <nlohmann/json.hpp>

#include "host/arena/arena_file.h"
#include "inspect/names.h"
#include "tools/failure.h"
#include "tools/file.h"
#include "tools/look.h"
#include "tools/text.h"

namespace tools {

using linx::inspect::Sent;

namespace {

volatile std::sig_atomic_t stopped = 0;

/// What has been captured is to be told and written, whoever ends the program.
void catchRequestsToEnd() {
    struct sigaction action = {};
    action.sa_handler = [](int) { stopped = 1; };
    for (const int request : {SIGINT, SIGTERM, SIGHUP}) sigaction(request, &action, nullptr);
}

[[noreturn]] void failToWatch(const std::string& path) {
    const std::string shown = printable(path);
    switch (errno) {
        case EBUSY:
            throw Failure(refused, "another process watches " + shown + ": wait until it has ended, or end it");
        case EACCES:
        case EPERM:
            throw Failure(refused, "no permission to watch " + shown + ": be allowed to write to it (you are " +
                                       userName(geteuid()) + ")");
        default:
            throw Failure(refused, shown + " cannot be watched: " + std::strerror(errno));
    }
}

/// What was put is there for others from now on. False when nobody wants it any more.
bool flush(std::FILE* output, const std::string& name) {
    if (std::fflush(output) != 0 || std::ferror(output) != 0) {
        if (errno != EPIPE) failToWrite(name, errno);
        std::clearerr(output);
        return false;
    }
    pollfd reader = {fileno(output), 0, 0};
    return poll(&reader, 1, 0) != 1 || (reader.revents & POLLERR) == 0;
}

}  // namespace

void JsonSink::put(const Captured& signal) {
    nlohmann::ordered_json json;
    json["time"] = worldTime(signal.nanoseconds);
    json["from"] = signal.fromName;
    json["to"] = signal.toName;
    json["number"] = signal.number;
    json["size"] = signal.size;
    json["data"] = hexadecimal(signal.data);
    std::fputs((textOf(json) + "\n").c_str(), file_);
}

Watch::Watch(const Options& options, const WatchOptions& what) : count_(options.count), what_(what) {
    if (!options.arena.empty()) {
        throw Failure(badUsage, "in an arena by itself nothing is sent: to watch, name its domain");
    }
    openPlace(options, place_);
    if (linx::checkArenaFile(place_.file()) == 0) failToRead(place_.path());
    catchRequestsToEnd();
    tap_ = linx::inspect::Tap::take(place_, what.snaplen);
    if (tap_ == nullptr) failToWatch(place_.path());
    if (options.timeout) end_ = Clock::now() + *options.timeout;
}

bool Watch::isStopped() {
    return stopped != 0;
}

Tally Watch::run(std::FILE* output, const std::string& outputName, Sink& sink) {
    constexpr std::chrono::milliseconds glance(100);  // to notice a request to end, a reader gone
    Tally tally;
    bool isWatched = flush(output, outputName);
    Sent sent;
    while (isWatched && !isStopped() && !isEnough(tally) && !isLate()) {
        if (!tap_->next(sent, 0)) {
            isWatched = flush(output, outputName);
            if (!isWatched) break;
            const auto left = end_ ? std::chrono::ceil<std::chrono::milliseconds>(*end_ - Clock::now()) : glance;
            const auto pause = std::clamp(left, std::chrono::milliseconds(0), glance);
            if (!tap_->next(sent, static_cast<int>(pause.count()))) continue;
        }
        put(std::move(sent), sink, tally);
    }
    tap_->stop();
    while (isWatched && !isEnough(tally) && tap_->next(sent, 0)) put(std::move(sent), sink, tally);
    tally.lost = tap_->lost();
    sink.finish(tally);
    if (isWatched) flush(output, outputName);
    return tally;
}

void Watch::put(Sent&& sent, Sink& sink, Tally& tally) {
    const Captured signal = withNames(std::move(sent));
    if (!isWanted(signal)) return;
    sink.put(signal);
    ++tally.captured;
}

void Watch::requireEnough(const Tally& tally) const {
    if (isStopped() || !isLate() || !count_ || isEnough(tally)) return;
    throw Failure(timedOut,
                  std::to_string(tally.captured) + " of " + std::to_string(*count_) + " signals were sent in time");
}

bool Watch::isWanted(const Captured& signal) const {
    const auto has = [](const auto& list, const auto& value) {
        return std::find(list.begin(), list.end(), value) != list.end();
    };
    return (what_.names.empty() || has(what_.names, signal.fromName) || has(what_.names, signal.toName)) &&
           (what_.numbers.empty() || has(what_.numbers, signal.number)) &&
           (!what_.from || *what_.from == signal.fromName) && (!what_.to || *what_.to == signal.toName);
}

Captured Watch::withNames(Sent&& sent) {
    Captured signal;
    signal.nanoseconds = sent.nanoseconds;
    signal.from = sent.from;
    signal.to = sent.to;
    signal.fromName = nameOf(sent.from);
    signal.toName = nameOf(sent.to);
    signal.number = sent.number;
    signal.size = std::max(sent.size, static_cast<uint32_t>(sizeof sent.number));
    signal.isLittleEndian = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__;
    signal.data = std::move(sent.data);
    signal.data.resize(std::min(signal.data.size(), signal.payloadSize()));
    return signal;
}

const std::string& Watch::nameOf(linx::Spid spid) {
    const auto known = names_.find(spid);
    if (known != names_.end()) return known->second;
    if (names_.size() >= linx::slotCount) names_.clear();  // endpoints come and go for ever
    return names_[spid] = linx::inspect::nameOf(place_.file(), spid).value_or(hexadecimal(spid));
}

}  // namespace tools
