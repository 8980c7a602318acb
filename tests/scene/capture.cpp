#include "tests/scene/capture.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "tests/kit/child.h"
#include "tests/kit/signals.h"

namespace scene {
namespace {

constexpr uint32_t snapBytes = small;  // a parcel's, whole

std::unique_ptr<linx::inspect::Tap> take(const std::string& domain) {
    linx::inspect::Place place;
    if (!place.openDirectory(domain)) return nullptr;
    return linx::inspect::Tap::take(place, snapBytes);
}

bool isWhole(const linx::inspect::Sent& sent) {
    if (sent.size != sizeof(LinxSignal) + sent.data.size()) return false;
    if (sent.number == parcel) return pattern(small, parcel) == Bytes(sent.data.begin(), sent.data.end());
    return sent.number >= item && sent.number <= wake;
}

}  // namespace

void Capturer::begin() {
    if (kind_ == Capture::none) return;
    if (kind_ == Capture::running) {
        tap_ = take(domain_);
        if (tap_ == nullptr) std::abort();
        return;
    }
    Child reader([&](Line& parent) {
        const auto tap = take(domain_);
        if (tap == nullptr) std::abort();
        parent.tell();
        parent.hear();
    });
    reader.hear();
    reader.kill9();
}

std::vector<std::string> Capturer::end() {
    std::vector<std::string> complaints;
    if (kind_ == Capture::none) return complaints;
    if (kind_ == Capture::abandoned) tap_ = take(domain_);
    if (tap_ == nullptr) return {"nobody can capture any more"};
    for (linx::inspect::Sent sent; tap_->next(sent, 0);) {
        if (isWhole(sent)) continue;
        complaints.push_back("a signal was captured that nobody has sent: " + std::to_string(sent.number) + ", " +
                             std::to_string(sent.size) + " bytes");
        break;
    }
    tap_ = nullptr;
    return complaints;
}

}  // namespace scene
