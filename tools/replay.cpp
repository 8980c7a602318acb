#include <algorithm>
#include <chrono>
#include <iostream>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>

#include "tools/captured.h"
#include "tools/correspondent.h"
#include "tools/failure.h"
#include "tools/file.h"
#include "tools/text.h"
#include "tools/verbs.h"

namespace tools {
namespace {

using Clock = std::chrono::steady_clock;

/// When signals are due that were sent at some distance from each other.
class Schedule {
public:
    explicit Schedule(double pace) : pace_(pace) {}

    Clock::time_point due(uint64_t nanoseconds) {
        if (!first_) first_ = nanoseconds;
        if (pace_ == 0 || nanoseconds < *first_) return start_;
        constexpr double century = 3e18;  // whoever waits for longer has been garbled
        const double after = std::min(static_cast<double>(nanoseconds - *first_) / pace_, century);
        return start_ + std::chrono::nanoseconds(static_cast<int64_t>(after));
    }

private:
    const double pace_;
    const Clock::time_point start_ = Clock::now();
    std::optional<uint64_t> first_;
};

/// Why it cannot be sent as it was; empty where it can.
std::string obstacleTo(const std::optional<Captured>& signal) {
    if (!signal) return "is none that `linx capture` has written";
    if (signal->isCut()) {
        return "has " + std::to_string(signal->payloadSize()) + " bytes of payload, of which " +
               std::to_string(signal->data.size()) + " were captured: capture with --snaplen";
    }
    const bool isOfThisOrder = signal->isLittleEndian == (__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__);
    if (!isOfThisOrder && !signal->data.empty()) {
        return std::string("has a payload of a ") + (signal->isLittleEndian ? "little" : "big") +
               "-endian machine, which receivers here would misread";
    }
    return "";
}

class Replay {
public:
    Replay(const Options& options, const ReplayOptions& what)
        : options_(options), what_(what), self_(options), schedule_(what.pace) {}

    /// `place`: which packet of the capture it is, from 1.
    void add(uint64_t place, const Packet& packet) {
        const std::optional<Captured> signal = fromPacket(packet);
        const std::string obstacle = obstacleTo(signal);
        if (!obstacle.empty()) {
            ++refusedCount_;
            std::cerr << "linx: not sent: signal " << place << " " << obstacle << "\n";
            return;
        }
        self_.discardUntil(schedule_.due(signal->nanoseconds));
        const std::string& to = what_.to ? *what_.to : signal->toName;
        const std::optional<LinxSpid> receiver =
            self_.find(to, options_.timeout.value_or(std::chrono::milliseconds(0)));
        if (receiver) {
            self_.send(*receiver, signal->number, signal->data);
            ++sent_;
        } else {
            ++missed_[to];
        }
    }

    bool isEnough() const { return options_.count && sent_ >= *options_.count; }

    int finish() const {
        uint64_t missed = 0;
        for (const auto& [name, count] : missed_) {
            missed += count;
            std::cerr << "linx: not sent: " << count << " to '" << printable(name) << "', whom nobody is called\n";
        }
        const uint64_t notSent = missed + refusedCount_;
        if (options_.json) {
            printJson({{"sent", sent_}, {"not_sent", notSent}});
        } else {
            printLine("sent " + std::to_string(sent_) + " signals, not sent " + std::to_string(notSent));
        }
        return refusedCount_ != 0 ? refused : missed != 0 ? noSuchName : done;
    }

private:
    const Options& options_;
    const ReplayOptions& what_;
    Correspondent self_;
    Schedule schedule_;
    uint64_t sent_ = 0;
    uint64_t refusedCount_ = 0;
    std::map<std::string, uint64_t> missed_;  ///< by name
};

}  // namespace

int replay(const Options& options, const ReplayOptions& what) {
    const File file = openToRead(what.capture);
    PcapngReader reader(file.get(), what.capture);
    std::optional<Packet> packet = reader.next();  // what is no capture at all is told before anything is done
    Replay replay(options, what);
    for (uint64_t place = 1; packet && !replay.isEnough(); ++place) {
        replay.add(place, *packet);
        packet = reader.next();
    }
    return replay.finish();
}

}  // namespace tools
