#ifndef LINXIPC_TESTS_LINK_PAIR_H
#define LINXIPC_TESTS_LINK_PAIR_H

#include <gmock/gmock.h>

#include "link/session/session.h"

namespace linktest {

using namespace linx::link;
using namespace std::chrono_literals;

inline Settings settingsOf(uint8_t node) {
    Settings settings;
    settings.node[0] = node;
    return settings;
}

inline Bytes bytesOf(size_t size, uint8_t first = 0) {
    Bytes bytes(size);
    for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<uint8_t>(first + i * 7);
    return bytes;
}

/// All events of one kind that the session has to tell now, the others dropped.
template <class Kind>
std::vector<Kind> take(Session& session) {
    std::vector<Kind> found;
    while (session.event() != nullptr) {
        Event event = session.take();
        if (auto* const kind = std::get_if<Kind>(&event)) found.push_back(std::move(*kind));
    }
    return found;
}

/// Two sessions that are connected with each other, without an engine in between. Frames pass when the test says so.
class Pair {
public:
    explicit Pair(const Settings& first = settingsOf(1), const Settings& second = settingsOf(2))
        : a(first, 11, 0s), b(second, 22, 0s) {}

    /// All frames that `from` has now, given to nobody.
    std::vector<Bytes> framesOf(Session& from) {
        std::vector<Bytes> frames;
        while (std::optional<Bytes> frame = from.nextFrame(now)) frames.push_back(std::move(*frame));
        return frames;
    }
    void give(const std::vector<Bytes>& frames, Session& to) {
        for (const Bytes& frame : frames) to.arrived(frame.data(), frame.size(), now);
    }
    /// Lets both talk until they have nothing to say.
    void settle() {
        for (bool isQuiet = false; !isQuiet;) {
            const std::vector<Bytes> fromA = framesOf(a);
            const std::vector<Bytes> fromB = framesOf(b);
            give(fromA, b);
            give(fromB, a);
            isQuiet = fromA.empty() && fromB.empty();
        }
    }
    /// Up, with an endpoint on each side that the other knows.
    void introduce(uint32_t credit = usualCredit) {
        settle();
        client = *a.announce("client", credit);
        server = *b.announce("server", credit);
        settle();
        ASSERT_EQ(take<Announced>(b).size(), 1u);
        ASSERT_EQ(take<Announced>(a).size(), 1u);
        now += 1s / 50;
        settle();
    }
    Sent send(Bytes payload, uint32_t number = 7) {
        return a.send(FarId(numberOf(server)), client, number, std::move(payload));
    }

    Time now = {};
    Session a;
    Session b;
    OwnId client = {};
    OwnId server = {};
};

}  // namespace linktest

#endif
