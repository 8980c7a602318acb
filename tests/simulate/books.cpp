#include "tests/simulate/books.h"

#include "tests/simulate/random.h"

namespace simulate {
namespace {

constexpr size_t headBytes = 32;

uint8_t fillByte(uint64_t number, size_t at) {
    return static_cast<uint8_t>(number * 31 + at * 7);
}

}  // namespace

void claim(bool holds, const char* sentence) {
    if (!holds) throw Violation(sentence);
}

Life Books::lifeOf(Tag tag, FarId id) const {
    const auto found = lifeOf_.find({tag, numberOf(id)});
    claim(found != lifeOf_.end(), "an endpoint is known that nobody announced");
    return found->second;
}

Bytes Books::letter(Tag tag, Life from, Life to, uint64_t number, size_t size) {
    Bytes letter;
    linx::link::Writer writer(letter);
    for (const uint64_t part : {tag, from, to, number}) writer.u64(part);
    letter.resize(size);
    for (size_t at = headBytes; at < size; ++at) letter[at] = fillByte(number, at);
    return letter;
}

void Books::opened(Tag tag, FarId id, const std::string& name) {
    for (const auto& [other, itsName] : proxies_[tag]) {
        claim(itsName != name, "a proxy opens before the end of the last one of its name is told");
    }
    claim(proxies_[tag].emplace(id, name).second, "an endpoint is announced twice");
}

void Books::delivered(Tag tag, FarId from, Life to, const Bytes& payload) {
    const auto proxy = proxies_[tag].find(from);
    claim(proxy != proxies_[tag].end(), "a signal comes from an endpoint that is not open");
    const Life sender = lifeOf(tag, from);
    linx::link::Reader reader(payload.data(), payload.size());
    const Tag itsTag = reader.u64();
    const Life itsSender = reader.u64();
    const Life itsDestination = reader.u64();
    const uint64_t number = reader.u64();
    claim(itsTag == tag, "a signal of another session arrives");
    claim(itsSender == sender && itsDestination == to, "a signal comes from or to somebody else");
    Traffic& traffic = traffic_[tag][{sender, to}];
    claim(number > traffic.delivered, "a signal is doubled");
    claim(number == traffic.delivered + 1, "a signal is lost or overtaken");
    claim(payload == letter(tag, sender, to, number, payload.size()), "a signal is changed");
    ++traffic.delivered;
    ++signals_;
}

void Books::closed(Tag tag, FarId id) {
    claim(proxies_[tag].erase(id) == 1, "an end is told twice");
    const Life life = lifeOf(tag, id);
    claim(isDead(life), "the end of a living endpoint is told");
    for (const auto& [pair, traffic] : traffic_[tag]) {
        if (pair.first != life || isDead(pair.second)) continue;
        claim(traffic.delivered == traffic.accepted, "an end is told before what was sent");
    }
    ++notices_;
}

/// `out` is the direction in which they went; `in` the one in which their destinations were announced.
void Books::lost(Tag out, Tag in, const std::vector<linx::link::Loss>& losses) {
    std::map<Life, uint64_t> counted;
    for (const linx::link::Loss& loss : losses) {
        counted[lifeOf(in, loss.to)] += loss.signals;
        losses_ += loss.signals;
    }
    std::map<Life, Traffic> sums;
    for (const auto& [pair, traffic] : traffic_[out]) {
        sums[pair.second].accepted += traffic.accepted;
        sums[pair.second].delivered += traffic.delivered;
    }
    for (const auto& [life, sum] : sums) {
        claim(counted[life] <= sum.accepted, "more is counted as lost than was sent");
        if (isDead(life)) continue;  // what came too late for it is counted as a stray or as undeliverable
        claim(sum.accepted - sum.delivered <= counted[life], "a loss is not counted");
    }
}

bool Books::isAllThere(Tag tag, const std::set<Life>& except) const {
    const auto found = traffic_.find(tag);
    if (found == traffic_.end()) return true;
    for (const auto& [pair, traffic] : found->second) {
        if (isDead(pair.second) || except.count(pair.second) != 0) continue;
        if (traffic.delivered != traffic.accepted) return false;
    }
    return true;
}

}  // namespace simulate
