#include "models/machine/explorer.h"

#include <algorithm>
#include <random>

#include "models/machine/heap.h"
#include "models/machine/kernel.h"

namespace model {
namespace {

/// The states that were reached, by their hashes. A set of its own, since there are millions of them.
class States {
public:
    /// False when it is there already.
    bool insert(uint64_t state) {
        if (2 * (size_ + 1) > places_.size()) grow();
        uint64_t& place = placeOf(state + (state == none));
        const bool isNew = place == none;
        place = state + (state == none);
        size_ += isNew ? 1 : 0;
        return isNew;
    }
    void clear() {
        places_.clear();
        size_ = 0;
    }
    uint64_t size() const { return size_; }

private:
    static constexpr uint64_t none = 0;

    uint64_t& placeOf(uint64_t state) {
        size_t at = state & (places_.size() - 1);
        while (places_[at] != none && places_[at] != state) at = (at + 1) & (places_.size() - 1);
        return places_[at];
    }
    void grow() {
        std::vector<uint64_t> before(std::max<size_t>(2 * places_.size(), 1u << 12), none);
        before.swap(places_);
        for (const uint64_t state : before) {
            if (state != none) placeOf(state) = state;
        }
    }

    std::vector<uint64_t> places_;
    uint64_t size_ = 0;
};

/// Takes the branches of a tree depth first: what was chosen so far is repeated up to the last place with a branch
/// left.
class DepthFirst : public Chooser {
public:
    uint32_t choose(uint32_t count) override {
        if (depth_ == path_.size()) path_.push_back({0, count});
        return path_[depth_++].chosen;
    }
    // On the repeated part the states are known, and lead to something new.
    bool wantsState() const override { return depth_ == path_.size(); }
    bool knows(uint64_t state) override { return !states_.insert(state); }

    /// On to the next branch. False when there is none.
    bool advance() {
        depth_ = 0;
        while (!path_.empty() && path_.back().chosen + 1 == path_.back().count) path_.pop_back();
        if (path_.empty()) return false;
        ++path_.back().chosen;
        return true;
    }
    void restart() {
        path_.clear();
        states_.clear();
        depth_ = 0;
    }
    std::vector<uint32_t> choices() const {
        std::vector<uint32_t> made;
        for (const Fork& fork : path_) made.push_back(fork.chosen);
        return made;
    }
    uint64_t states() const { return states_.size(); }

private:
    struct Fork {
        uint32_t chosen;
        uint32_t count;
    };
    std::vector<Fork> path_;
    size_t depth_ = 0;
    States states_;
};

/// Draws every choice, and remembers it.
class Drawn : public Chooser {
public:
    explicit Drawn(uint64_t seed) : random_(seed) {}
    uint32_t choose(uint32_t count) override {
        // Mostly the first ways, or no execution would ever run far without a switch, a stale read or a death.
        const auto drawn = static_cast<uint32_t>(random_() % count);
        choices_.push_back(random_() % 4 == 0 ? drawn : std::min(drawn, favourite(count)));
        return choices_.back();
    }
    bool wantsState() const override { return false; }
    bool knows(uint64_t) override { return false; }
    void restart() {
        choices_.clear();
        favourite_ = static_cast<uint32_t>(random_());
    }
    const std::vector<uint32_t>& choices() const { return choices_; }

private:
    uint32_t favourite(uint32_t count) {
        if (random_() % 8 == 0) favourite_ = static_cast<uint32_t>(random_());
        return favourite_ % count;
    }

    std::mt19937_64 random_;
    uint32_t favourite_ = 0;
    std::vector<uint32_t> choices_;
};

class Repeated : public Chooser {
public:
    explicit Repeated(std::vector<uint32_t> choices) : choices_(std::move(choices)) {}
    uint32_t choose(uint32_t count) override {
        return next_ < choices_.size() ? std::min(choices_[next_++], count - 1) : 0;
    }
    bool wantsState() const override { return false; }
    bool knows(uint64_t) override { return false; }

private:
    std::vector<uint32_t> choices_;
    size_t next_ = 0;
};

/// The state in which every execution begins.
class Beginning {
public:
    explicit Beginning(const Model& model) : model_(model) {
        kernel.reset();
        clearWorldHeap();
        {
            const WorldHeap heap;
            model.prepare();
        }
        memory.begin();
        kernel.begin();
        heap_ = copyOfWorldHeap();
    }
    void restore() const {
        memory.rewind();
        kernel.rewind();
        restoreWorldHeap(heap_);
    }

    Ending run(Chooser& chooser, std::vector<std::string>* trace = nullptr) const {
        restore();
        const Ending ending = scheduler.run(model_.play, chooser, trace);
        if (ending != Ending::complete) return ending;
        {
            const WorldHeap heap;
            model_.check();
        }
        return scheduler.violation().empty() ? Ending::complete : Ending::violated;
    }

private:
    const Model& model_;
    std::vector<char> heap_;
};

void tell(const Beginning& beginning, const std::vector<uint32_t>& choices, Result& result) {
    result.violation = scheduler.violation();
    Repeated again(choices);
    beginning.run(again, &result.trace);
}

/// Lets executions find out which words are shared, so that the exploration need not begin anew for each. False when
/// one of them violates a claim.
bool findShared(const Beginning& beginning, uint64_t seed, Result& result) {
    Drawn chooser(seed);
    for (unsigned quiet = 0; quiet < 3000; ++quiet) {
        chooser.restart();
        if (beginning.run(chooser) == Ending::violated) {
            tell(beginning, chooser.choices(), result);
            return false;
        }
        if (memory.foundMoreShared()) quiet = 0;
        memory.sharedIsKnown();
    }
    return true;
}

}  // namespace

Result exploreAll(const Model& model, const Limits& limits) {
    const Beginning beginning(model);
    Result result;
    if (!findShared(beginning, limits.seed, result)) return result;
    DepthFirst chooser;
    do {
        const Ending ending = beginning.run(chooser);
        ++result.executions;
        if (memory.foundMoreShared()) {
            memory.sharedIsKnown();
            chooser.restart();
            result.completed = 0;
            continue;
        }
        if (ending == Ending::complete) ++result.completed;
        if (ending == Ending::violated) {
            tell(beginning, chooser.choices(), result);
            break;
        }
        if (chooser.states() >= limits.states) break;
        result.exhausted = !chooser.advance();
    } while (!result.exhausted);
    result.states = chooser.states();
    beginning.restore();
    return result;
}

Result exploreSome(const Model& model, const Limits& limits) {
    const Beginning beginning(model);
    Result result;
    if (!findShared(beginning, limits.seed, result)) return result;
    Drawn chooser(limits.seed);
    while (result.executions < limits.executions) {
        chooser.restart();
        const Ending ending = beginning.run(chooser);
        ++result.executions;
        memory.sharedIsKnown();
        if (ending == Ending::complete) ++result.completed;
        if (ending == Ending::violated) {
            tell(beginning, chooser.choices(), result);
            break;
        }
    }
    beginning.restore();
    return result;
}

}  // namespace model
