// A tap that plays what a test has written into the file $LINX_TEST_TAP, line by line and also what is added later:
// `NANOSECONDS FROM TO NUMBER SIZE [PAYLOAD]`, the last in hexadecimal; `lost COUNT`; or `end`, at which the program is
// asked to end. Where the file says `error NUMBER` at first, there is no tap, for that reason.

#include <poll.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "inspect/tap.h"

namespace linx {
namespace inspect {

struct Tap::Ring {
    std::ifstream script;
    uint32_t snaplen = 0;
    uint64_t lost = 0;
    bool isStopped = false;
};

std::unique_ptr<Tap> Tap::take(const Place&, uint32_t snaplen) {
    auto ring = std::make_unique<Ring>();
    ring->snaplen = snaplen;
    const char* const script = std::getenv("LINX_TEST_TAP");
    if (script == nullptr) std::abort();
    ring->script.open(script);
    if (!ring->script.is_open()) std::abort();
    std::string word;
    int reason = 0;
    if (ring->script >> word >> reason && word == "error") {
        errno = reason;
        return nullptr;
    }
    ring->script.clear();
    ring->script.seekg(0);
    return std::unique_ptr<Tap>(new Tap(std::move(ring)));
}

Tap::Tap(std::unique_ptr<Ring> ring) : ring_(std::move(ring)) {}
Tap::~Tap() = default;

bool Tap::next(Sent& sent, int milliseconds) {
    std::string line;
    while (!ring_->isStopped) {
        const auto start = ring_->script.tellg();
        if (!std::getline(ring_->script, line) || ring_->script.eof()) {
            ring_->script.clear();
            ring_->script.seekg(start);
            if (milliseconds != 0) poll(nullptr, 0, milliseconds);
            return false;
        }
        std::istringstream words(line);
        if (line.rfind("lost ", 0) == 0) {
            words.ignore(5) >> ring_->lost;
            continue;
        }
        if (line == "end") {
            std::raise(SIGTERM);
            return false;
        }
        uint32_t from = 0;
        uint32_t to = 0;
        std::string payload;
        words >> sent.nanoseconds >> from >> to >> sent.number >> sent.size;
        if (!words) std::abort();
        words >> payload;
        sent.from = Spid{from};
        sent.to = Spid{to};
        sent.data.clear();
        for (size_t at = 0; at + 2 <= payload.size() && sent.data.size() < ring_->snaplen; at += 2) {
            sent.data.push_back(static_cast<unsigned char>(std::stoul(payload.substr(at, 2), nullptr, 16)));
        }
        return true;
    }
    return false;
}

void Tap::stop() {
    ring_->isStopped = true;
}

uint64_t Tap::lost() const {
    return ring_->lost;
}

}  // namespace inspect
}  // namespace linx
