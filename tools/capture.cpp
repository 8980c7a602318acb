#include <unistd.h>

#include <chrono>
#include <iostream>

#include "tools/failure.h"
#include "tools/file.h"
#include "tools/verbs.h"
#include "tools/watch.h"

namespace tools {
namespace {

class PcapngSink : public Sink {
public:
    PcapngSink(std::FILE* file, const std::string& domain, uint32_t snaplen)
        : writer_(file, domain, packetBytes(snaplen)) {}

    void put(const Captured& signal) override { writer_.write(toPacket(signal)); }

    void finish(const Tally& tally) override {
        const auto now = std::chrono::system_clock::now().time_since_epoch();
        writer_.finish(tally, static_cast<uint64_t>(std::chrono::nanoseconds(now).count()));
    }

private:
    PcapngWriter writer_;
};

}  // namespace

int capture(const Options& options, const CaptureOptions& what) {
    const bool isToStandardOutput = what.output == "-";
    if (isToStandardOutput && !options.json && isatty(STDOUT_FILENO) == 1) {
        throw Failure(badUsage,
                      "a capture is not for terminals: name a file, or have `linx monitor` show the signals");
    }
    Watch watch(options, what.watch);
    File file;
    if (!isToStandardOutput) {
        try {
            file = openToWrite(what.output);
        } catch (const Failure&) {
            if (Watch::isStopped()) return done;  // amid the wait for a reader of a pipe
            throw;
        }
    }
    std::FILE* const output = isToStandardOutput ? stdout : file.get();
    const auto sink = options.json ? std::unique_ptr<Sink>(new JsonSink(output))
                                   : std::make_unique<PcapngSink>(output, watch.domain(), what.watch.snaplen);
    const Tally tally = watch.run(output, isToStandardOutput ? "the output" : what.output, *sink);
    if (!what.quiet) std::cerr << "captured " << tally.captured << " signals, lost " << tally.lost << "\n";
    watch.requireEnough(tally);
    return done;
}

}  // namespace tools
