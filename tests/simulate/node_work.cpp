// What the applications of a node do, and what can be asked of it when all is well.

#include "tests/simulate/node.h"

namespace simulate {

using namespace linx::link;

namespace {

constexpr uint64_t names = 6;

}  // namespace

std::string Node::someName() {
    return std::string(1, static_cast<char>('a' + world_.random.below(names)));
}

const std::string* Node::someApp() {
    if (apps_.empty()) return nullptr;
    auto at = apps_.begin();
    std::advance(at, static_cast<std::ptrdiff_t>(world_.random.below(apps_.size())));
    return &at->first;
}

void Node::act() {
    Random& random = world_.random;
    const uint64_t choice = random.below(100);
    if (choice < 8) {
        open(someName());
    } else if (choice < 12) {
        close(someName());
    } else if (choice < 20) {
        const int peer = (number_ + 1 + static_cast<int>(random.below(static_cast<uint64_t>(nodes_ - 1)))) % nodes_;
        const std::string name = someName();
        world_.trace.add("%d: %s of %d is sought", number_, name.c_str(), peer);
        links_[peer].wanted.insert(name);
        links_[peer].peer->seek({name, {}});
    } else if (const std::string* const app = someApp()) {
        sendFrom(*app);
    }
}

size_t Node::someSize() {
    Random& random = world_.random;
    const auto between = [&](size_t least, size_t most) { return least + random.indexOf(most - least + 1); };
    if (world_.weather.isHeavy && random.below(4) == 0) return between(16300, 150000);
    const uint64_t choice = random.below(200);
    if (choice == 0) return between(100000, mostSignal - 4);
    if (choice < 7) return between(16300, 60000);
    if (choice < 25) return between(1000, 16380);
    return between(32, 200);
}

void Node::sendFrom(const std::string& name) {
    const int peer =
        (number_ + 1 + static_cast<int>(world_.random.below(static_cast<uint64_t>(nodes_ - 1)))) % nodes_;
    Link& link = links_[peer];
    if (!link.isUp || link.proxies.empty()) return;
    auto at = link.proxies.begin();
    std::advance(at, static_cast<std::ptrdiff_t>(world_.random.below(link.proxies.size())));
    for (uint64_t left = world_.random.between(1, 10); left != 0; --left) sendTo(link, name, at->second, someSize());
}

void Node::sendTo(Link& link, const std::string& from, FarId to, size_t size) {
    Session* const session = link.peer->session();
    if (session == nullptr || !announce(link, from)) return;
    const Life sender = apps_[from].life;
    const Life destination = world_.books.lifeOf(link.in, to);
    const uint64_t number = world_.books.nextNumber(link.out, sender, destination);
    Bytes letter = Books::letter(link.out, sender, destination, number, size);
    const Sent sent = session->send(to, link.own[from], static_cast<uint32_t>(number), std::move(letter));
    claim(sent != Sent::tooLarge, "a signal is too large");
    if (sent == Sent::taken) world_.books.accepted(link.out, sender, destination);
}

void Node::wakeUp() {
    for (auto& [name, app] : apps_) app.isSlow = false;
}

void Node::sendEverywhere() {
    for (auto& [peer, link] : links_) {
        const std::map<std::string, FarId> proxies = link.proxies;
        for (const auto& [name, id] : proxies) {
            if (const std::string* const app = someApp()) sendTo(link, *app, id, someSize());
        }
    }
}

bool Node::isWell(const std::vector<std::unique_ptr<Node>>& nodes) const {
    std::set<Life> slow;
    for (const auto& [name, app] : apps_) {
        if (app.isSlow) slow.insert(app.life);
    }
    for (const auto& [peer, link] : links_) {
        const Link& other = nodes[static_cast<size_t>(peer)]->links_.at(number_);
        if (!link.isUp || link.in != other.out || link.out != other.in) return false;
        if (!world_.books.isAllThere(link.in, slow)) return false;
    }
    return true;
}

/// Everything has come, and what is known of the others is what is there.
bool Node::isAtRest(const std::vector<std::unique_ptr<Node>>& nodes) const {
    for (const auto& [peer, link] : links_) {
        const Session* const session = link.peer->session();
        if (session == nullptr || !session->isAtRest() || link.peer->event() != nullptr) return false;
        const auto& there = nodes[static_cast<size_t>(peer)]->apps_;
        for (const auto& [name, id] : link.proxies) {
            const auto app = there.find(name);
            if (app == there.end() || app->second.life != world_.books.lifeOf(link.in, id)) return false;
        }
        for (const std::string& name : link.wanted) {
            if (there.count(name) != 0 && link.proxies.count(name) == 0) return false;
        }
    }
    return std::all_of(apps_.begin(), apps_.end(), [](const auto& entry) { return entry.second.inbox.empty(); });
}

void Node::checkBounds() {
    for (auto& [peer, link] : links_) {
        const Session* const session = link.peer->session();
        if (session == nullptr) continue;
        claim(session->bytesIn() <= leastWindow, "a session holds more than its window of what came");
        const size_t most = link.proxies.size() * (mostQueued + signalHeadBytes + mostSignal);
        claim(!link.isUp || session->bytesOut() <= most, "a session holds more than it may of what goes");
    }
}

}  // namespace simulate
