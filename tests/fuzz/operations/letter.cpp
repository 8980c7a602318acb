#include "tests/fuzz/operations/letter.h"

#include <algorithm>

namespace fuzz {
namespace {

constexpr uint32_t end = 24;  ///< bytes that are written at either end

unsigned char byteAt(uint32_t place, uint32_t seed) {
    return static_cast<unsigned char>((place + seed) * 2654435761u >> 24);
}

template <class Visit>
void forEachPlace(uint32_t size, Visit visit) {
    const uint32_t bytes = size - static_cast<uint32_t>(sizeof(LinxSignal));
    const uint32_t head = std::min(bytes, end);
    for (uint32_t place = 0; place < head; ++place) visit(place);
    for (uint32_t place = std::max(head, bytes - head); place < bytes; ++place) visit(place);
}

}  // namespace

void fill(LinxSignal* signal, const Letter& letter) {
    signal->number = letter.number;
    auto* payload = reinterpret_cast<unsigned char*>(signal + 1);
    forEachPlace(letter.size, [&](uint32_t place) { payload[place] = byteAt(place, letter.seed); });
}

bool isWritten(const LinxSignal* signal, const Letter& letter) {
    bool same = signal->number == letter.number;
    const auto* payload = reinterpret_cast<const unsigned char*>(signal + 1);
    forEachPlace(letter.size, [&](uint32_t place) { same = same && payload[place] == byteAt(place, letter.seed); });
    return same;
}

}  // namespace fuzz
