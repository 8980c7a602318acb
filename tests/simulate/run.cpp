#include "tests/simulate/run.h"

#include "tests/simulate/node.h"

namespace simulate {
namespace {

using namespace std::chrono_literals;

constexpr Time turn = 2ms;  ///< between two things that applications do
constexpr Time longestRecovery = 30s;

class Simulation {
public:
    Simulation(uint64_t seed, bool wantsTrace) : random_(seed), weather_(random_), trace_(wantsTrace) {
        const int nodes = 2 + static_cast<int>(random_.below(random_.below(3) == 0 ? 4 : 2));
        for (int number = 0; number < nodes; ++number) {
            nodes_.push_back(std::make_unique<Node>(world_, number, nodes));
            stations_.push_back(nodes_.back().get());
        }
    }

    Outcome run() {
        Outcome outcome;
        try {
            work();
            outcome.recovery = recover();
        } catch (const Violation& violation) {
            outcome.violation = violation.what();
        }
        outcome.trace = trace_.lines();
        for (const auto& node : nodes_) outcome.sessions += node->sessions();
        outcome.signals = books_.signals();
        outcome.notices = books_.notices();
        outcome.losses = books_.losses();
        outcome.faults = network_.faults();
        return outcome;
    }

private:
    void work() {
        const Time end = Time(random_.between(200000, 1500000));
        while (world_.now < end) {
            goOn();
            if (!isTurn_) continue;
            network_.worsen(static_cast<int>(nodes_.size()), world_.now);
            for (const auto& node : nodes_) {
                strike(*node);
                if (!node->runs()) continue;
                node->act();
                node->consume();
                node->run();
            }
        }
    }

    void strike(Node& node) {
        const int number = static_cast<int>(numberOf(node));
        if (random_.chance(weather_.pause)) {
            const Time length = Time(random_.below(800000));
            trace_.add("%d is stopped for %d ms", number, static_cast<int>(length.count() / 1000));
            network_.trouble(number);
            node.pause(world_.now + length);
        }
        if (random_.chance(weather_.crash)) {
            network_.crash(number, random_.below(2) == 0, world_.now);
            node.restart();
        }
    }
    size_t numberOf(const Node& node) const {
        size_t number = 0;
        while (nodes_[number].get() != &node) ++number;
        return number;
    }

    /// To the next moment at which something happens.
    void goOn() {
        Time next = std::min(nextTurn_, network_.deadline(stations_));
        for (const auto& node : nodes_) next = std::min(next, node->deadline());
        // Never at the same moment for good, even if somebody cannot do now what is due.
        world_.now = std::max(world_.now + Time(1), next);
        trace_.setTime(world_.now);
        isTurn_ = world_.now >= nextTurn_;
        if (isTurn_) nextTurn_ = world_.now + turn;
        network_.deliver(stations_, world_.now);
        for (const auto& node : nodes_) {
            if (!node->runs()) continue;
            node->run();
            node->checkBounds();
        }
    }

    /// First all but what slow applications hold up, and then everything.
    Time recover() {
        const Time start = world_.now;
        network_.heal();
        for (const auto& node : nodes_) node->resume();
        waitUntil("no progress although the network is well",
                  [this](const Node& node) { return node.isWell(nodes_); });
        const Time took = world_.now - start;
        for (const auto& node : nodes_) node->sendEverywhere();
        waitUntil("a slow destination holds up others", [this](const Node& node) { return node.isWell(nodes_); });
        for (const auto& node : nodes_) node->wakeUp();
        waitUntil("no rest", [this](const Node& node) { return node.isWell(nodes_) && node.isAtRest(nodes_); });
        return took;
    }

    template <class Condition>
    void waitUntil(const char* otherwise, Condition condition) {
        const Time latest = world_.now + longestRecovery;
        while (!std::all_of(nodes_.begin(), nodes_.end(), [&](const auto& node) { return condition(*node); })) {
            goOn();
            if (!isTurn_) continue;
            for (const auto& node : nodes_) {
                node->consume();
                node->run();
            }
            claim(world_.now < latest, otherwise);
        }
    }

    Random random_;
    const Weather weather_;
    Trace trace_;
    Books books_;
    Network network_{random_, weather_, trace_};
    World world_{random_, weather_, trace_, books_, network_};
    std::vector<std::unique_ptr<Node>> nodes_;
    std::vector<Station*> stations_;
    Time nextTurn_ = {};
    bool isTurn_ = false;
};

}  // namespace

Outcome run(uint64_t seed, bool wantsTrace) {
    return Simulation(seed, wantsTrace).run();
}

}  // namespace simulate
