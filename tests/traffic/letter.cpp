#include "tests/traffic/letter.h"

#include <cstddef>

namespace traffic {
namespace {

unsigned char* bytesOf(Letter& letter) {
    return reinterpret_cast<unsigned char*>(&letter + 1);
}
const unsigned char* bytesOf(const Letter& letter) {
    return reinterpret_cast<const unsigned char*>(&letter + 1);
}

uint32_t next(uint32_t state) {
    return state * 1664525u + 1013904223u;
}

uint32_t sumOf(const Letter& letter, Kind kind) {
    uint32_t sum = 2166136261u ^ kind;
    const auto* head = reinterpret_cast<const unsigned char*>(&letter);
    for (size_t i = 0; i < offsetof(Letter, headSum); ++i) sum = (sum ^ head[i]) * 16777619u;
    return sum;
}

}  // namespace

void fill(Letter& letter) {
    uint32_t state = letter.seed;
    for (uint32_t i = 0; i < letter.bytes; ++i) {
        state = next(state);
        bytesOf(letter)[i] = static_cast<unsigned char>(state >> 24);
    }
}

void seal(Letter& letter, Kind kind) {
    letter.headSum = sumOf(letter, kind);
}

bool isWhole(const Letter& letter, Kind kind, uint32_t signalSize) {
    if (signalSize < signalBytes(0) || letter.headSum != sumOf(letter, kind)) return false;
    if (signalSize != signalBytes(letter.bytes)) return false;
    uint32_t state = letter.seed;
    for (uint32_t i = 0; i < letter.bytes; ++i) {
        state = next(state);
        if (bytesOf(letter)[i] != static_cast<unsigned char>(state >> 24)) return false;
    }
    return true;
}

}  // namespace traffic
