#ifndef LINXIPC_TESTS_LINK_ENGINE_NODES_H
#define LINXIPC_TESTS_LINK_ENGINE_NODES_H

#include <poll.h>

#include "link/engine/switchboard.h"
#include "tests/link/pair.h"

namespace linktest {

inline Time clockNow() {
    return std::chrono::duration_cast<Time>(std::chrono::steady_clock::now().time_since_epoch());
}

/// Far longer than anything takes that is waited for.
constexpr std::chrono::seconds longest(60);

/// Sleeps until one of the engines may have news, or one of the deadlines has come.
inline void rest(const std::vector<Engine*>& engines, Time deadline) {
    std::vector<pollfd> polled;
    for (const Engine* engine : engines) polled.push_back({engine->descriptor(), POLLIN, 0});
    const Time left = std::max(Time(0), std::min(deadline - clockNow(), Time(100ms)));
    poll(polled.data(), polled.size(), static_cast<int>((left.count() + 999) / 1000));
}

/// Engines without sessions, and what each of them has told.
class Told {
public:
    explicit Told(Engine& engine) : engine_(engine) {}

    void listen() {
        while (std::optional<News> news = engine_.next(clockNow())) {
            if (const auto* const it = std::get_if<Connected>(&*news)) connected.push_back(*it);
            if (const auto* const it = std::get_if<DialFailed>(&*news)) failed.push_back(*it);
            if (const auto* const it = std::get_if<FrameArrived>(&*news)) frames.push_back(it->frame);
            if (const auto* const it = std::get_if<Disconnected>(&*news)) disconnected.push_back(*it);
        }
    }
    Engine& engine() { return engine_; }

    std::vector<Connected> connected;
    std::vector<DialFailed> failed;
    std::vector<Bytes> frames;
    std::vector<Disconnected> disconnected;

private:
    Engine& engine_;
};

/// Listens to all of them until it holds; false when it takes too long.
template <class Condition>
bool listenUntil(const std::vector<Told*>& all, const Condition& holds) {
    const Time limit = clockNow() + longest;
    std::vector<Engine*> engines;
    for (Told* told : all) engines.push_back(&told->engine());
    for (;;) {
        Time deadline = limit;
        for (Told* told : all) {
            told->listen();
            deadline = std::min(deadline, told->engine().deadline());
        }
        if (holds()) return true;
        if (clockNow() > limit) return false;
        rest(engines, deadline);
    }
}

/// A node of one link: its engine and the peer in it, and the kinds of events that it has told.
class Node {
public:
    Node(Engine& engine, uint8_t number, Peer::Side side, bool dials, uint32_t tolerance = 1500)
        : engine_(engine),
          board_(engine, [this] { return ++random_ * 0x9E3779B97F4A7C15; }),
          random_(number * 1000u) {
        Settings settings = settingsOf(number);
        settings.tolerance = tolerance;
        board_.add(settings, side, dials);
    }

    Time turn() {
        deadline_ = board_.turn(clockNow());
        while (peer().event() != nullptr) {
            const Event event = peer().take();
            ups += std::holds_alternative<Up>(event);
            if (const auto* const it = std::get_if<Announced>(&event)) announced.push_back(*it);
            if (const auto* const it = std::get_if<Arrived>(&event)) arrived.push_back(*it);
            if (const auto* const it = std::get_if<Down>(&event)) downs.push_back(it->reason);
        }
        return deadline_ = std::min(deadline_, board_.turn(clockNow()));
    }
    Peer& peer() { return board_.peer(PeerNumber(0)); }
    Session* session() { return peer().session(); }
    const std::string& trouble() const { return board_.trouble(PeerNumber(0)); }
    Engine& engine() { return engine_; }

    size_t ups = 0;
    std::vector<End> downs;
    std::vector<Announced> announced;
    std::vector<Arrived> arrived;

private:
    Engine& engine_;
    Switchboard board_;
    uint64_t random_;
    Time deadline_ = {};
};

template <class Condition>
bool turnUntil(const std::vector<Node*>& all, const Condition& holds) {
    const Time limit = clockNow() + longest;
    std::vector<Engine*> engines;
    for (Node* node : all) engines.push_back(&node->engine());
    for (;;) {
        Time deadline = limit;
        for (Node* node : all) deadline = std::min(deadline, node->turn());
        if (holds()) return true;
        if (clockNow() > limit) return false;
        rest(engines, deadline);
    }
}

}  // namespace linktest

#endif
