#include "tests/simulate/node.h"

#include "link/session/charge.h"

namespace simulate {

using namespace linx::link;

namespace {

Settings settingsOf(int number) {
    Settings settings;
    settings.node[15] = static_cast<uint8_t>(number + 1);
    settings.tolerance = 300;
    settings.window = leastWindow;
    return settings;
}

}  // namespace

Node::Node(World& world, int number, int nodes)
    : world_(world), number_(number), nodes_(nodes), bothDial_(world.random.below(2) == 0) {
    for (int peer = 0; peer < nodes; ++peer) {
        if (peer != number) begin(peer);
    }
}

void Node::begin(int peer) {
    Link fresh;
    fresh.wanted = std::move(links_[peer].wanted);
    const auto side = number_ < peer ? Peer::Side::lower : Peer::Side::higher;
    fresh.peer = std::make_unique<Peer>(settingsOf(number_), side, number_ < peer || bothDial_);
    for (const std::string& name : fresh.wanted) fresh.peer->seek({name, {}});
    links_[peer] = std::move(fresh);
}

void Node::connected(int peer, Connection connection, bool dialledHere) {
    Link& link = links_[peer];
    link.connections.push_back(connection);
    link.peer->connected(connection, dialledHere, world_.random.next(), world_.now);
}

void Node::dialFailed(int peer) {
    links_[peer].peer->dialFailed(world_.random.next(), world_.now);
}

void Node::arrived(int peer, Connection connection, const Bytes& frame) {
    links_[peer].peer->arrived(connection, frame.data(), frame.size(), world_.random.next(), world_.now);
    takeEvents(peer);
}

void Node::disconnected(int peer, Connection connection) {
    links_[peer].peer->disconnected(connection, world_.random.next(), world_.now);
    takeEvents(peer);
}

void Node::run() {
    for (auto& [peer, link] : links_) {
        if (link.peer->deadline() <= world_.now) link.peer->tick(world_.random.next(), world_.now);
        takeEvents(peer);
        announceWanted(link);
        if (link.peer->wantsDial(world_.now)) world_.network.dial(number_, peer, world_.now);
        pushFrames(peer);
    }
}

Time Node::deadline() const {
    if (!runs()) return pausedUntil_;
    Time deadline = Time::max();
    for (const auto& [peer, link] : links_) deadline = std::min(deadline, link.peer->deadline());
    return deadline;
}

void Node::pushFrames(int peer) {
    Link& link = links_[peer];
    for (const Connection connection : link.connections) {
        while (world_.network.hasRoom(number_, connection)) {
            std::optional<Bytes> frame = link.peer->nextFrame(connection, world_.now);
            if (!frame) break;
            claim(frame->size() <= frameBytes, "a frame is too large");
            world_.network.send(number_, connection, std::move(*frame), world_.now);
        }
    }
    while (const std::optional<Connection> served = link.peer->toClose()) {
        world_.network.close(number_, *served, world_.now);
        link.connections.erase(std::find(link.connections.begin(), link.connections.end(), *served));
    }
}

void Node::takeEvents(int peer) {
    Link& link = links_[peer];
    while (const Event* event = link.peer->event()) {
        if (!mayTake(*event)) return;
        told(peer, link.peer->take());
    }
}

/// Now and then there is no memory for signals, for a while.
bool Node::mayTake(const Event& event) {
    if (!std::holds_alternative<Arrived>(event)) return true;
    if (world_.random.chance(world_.weather.noMemory)) {
        starvedUntil_ = world_.now + Time(world_.random.below(80000));
    }
    return world_.now >= starvedUntil_;
}

void Node::told(int peer, Event event) {
    Link& link = links_[peer];
    if (std::holds_alternative<Up>(event)) {
        up(peer);
    } else if (const auto* const announced = std::get_if<Announced>(&event)) {
        world_.trace.add("%d: proxy %u of %s opens for %d", number_, numberOf(announced->id), announced->name.c_str(),
                         peer);
        world_.books.opened(link.in, announced->id, announced->name);
        link.proxies[announced->name] = announced->id;
        link.names[announced->id] = announced->name;
    } else if (const auto* const arrived = std::get_if<Arrived>(&event)) {
        arrivedSignal(link, peer, *arrived);
    } else if (const auto* const ended = std::get_if<Ended>(&event)) {
        world_.trace.add("%d: proxy %u for %d closes", number_, numberOf(ended->id), peer);
        world_.books.closed(link.in, ended->id);
        link.proxies.erase(link.names[ended->id]);
        link.names.erase(ended->id);
    } else if (const auto* const sought = std::get_if<Sought>(&event)) {
        link.standing.insert(sought->seek.name);
    } else if (const auto* const over = std::get_if<Down>(&event)) {
        down(peer, *over);
    }
}

void Node::up(int peer) {
    Link& link = links_[peer];
    claim(!link.isUp, "a session begins before the end of the last one is told");
    link.isUp = true;
    link.in = link.peer->session()->terms()->tagIn;
    link.out = link.peer->session()->terms()->tagOut;
    ++sessions_;
    world_.trace.add("%d: session with %d is up", number_, peer);
}

void Node::arrivedSignal(Link& link, int peer, const Arrived& signal) {
    const auto owner = link.owners.find(signal.to);
    claim(owner != link.owners.end(), "a signal comes for an endpoint that was never announced");
    const auto app = apps_.find(owner->second.first);
    const Life life = world_.books.lifeOf(link.out, FarId(numberOf(signal.to)));
    if (app == apps_.end() || app->second.life != life) {  // it has ended meanwhile
        link.peer->session()->consumed(signal.to, signal.payload.size());
        return;
    }
    world_.trace.add("%d: %zu bytes from proxy %u of %d for %s", number_, signal.payload.size(),
                     numberOf(signal.from), peer, owner->second.first.c_str());
    world_.books.delivered(link.in, signal.from, life, signal.payload);
    uint64_t& outstanding = link.outstanding[signal.to];
    outstanding += chargeOf(signal.payload.size(), owner->second.second);
    claim(outstanding <= owner->second.second, "a destination is sent more than it gave credit for");
    app->second.inbox.push_back({peer, link.in, signal.to, signal.payload.size()});
}

void Node::down(int peer, const Down& event) {
    Link& link = links_[peer];
    world_.trace.add("%d: session with %d ends: %s", number_, peer, textOf(event.reason));
    claim(link.isUp, "the end of a session is told that was not up");
    const auto& all = link.connections;
    const bool isExcused =
        event.reason == End::bye || event.reason == End::replaced || event.reason == End::disconnected ||
        std::any_of(all.begin(), all.end(),
                    [this](Connection connection) { return world_.network.wasTroubled(connection); });
    claim(isExcused, "a session ends without a reason");
    world_.books.lost(link.out, link.in, event.losses);
    world_.books.down(link.in);
    link.isUp = false;
    link.standing.clear();
    link.own.clear();
    link.owners.clear();
    link.outstanding.clear();
    link.proxies.clear();
    link.names.clear();
}

/// Answers the hunts of the far side for what is open here by now.
void Node::announceWanted(Link& link) {
    if (!link.isUp) return;
    for (const std::string& name : link.standing) {
        if (apps_.count(name) != 0) announce(link, name);
    }
}

bool Node::announce(Link& link, const std::string& name) {
    if (link.own.count(name) != 0) return true;
    Session* const session = link.peer->session();
    if (session == nullptr) return false;
    const uint32_t credit =
        static_cast<uint32_t>(world_.random.between(leastCredit, 4 * leastCredit << world_.random.below(7)));
    const std::optional<OwnId> id = session->announce(name, credit);
    if (!id) return false;
    world_.books.announced(link.out, *id, apps_[name].life);
    link.own[name] = *id;
    link.owners[*id] = {name, credit};
    return true;
}

void Node::open(const std::string& name) {
    if (apps_.count(name) != 0) return;
    App& app = apps_[name];
    app.life = world_.books.born();
    app.isSlow = world_.random.below(8) == 0;
    world_.trace.add("%d: %s opens%s", number_, name.c_str(), app.isSlow ? ", and is slow" : "");
}

void Node::close(const std::string& name) {
    const auto found = apps_.find(name);
    if (found == apps_.end()) return;
    world_.trace.add("%d: %s ends", number_, name.c_str());
    world_.books.died(found->second.life);
    apps_.erase(found);
    for (auto& [peer, link] : links_) {
        const auto known = link.own.find(name);
        if (known == link.own.end()) continue;
        if (Session* const session = link.peer->session()) session->ended(known->second);
        link.own.erase(known);
    }
}

void Node::consume() {
    for (auto& [name, app] : apps_) {
        for (uint64_t left = app.isSlow ? 0 : world_.random.below(20); left != 0 && !app.inbox.empty(); --left) {
            const Parcel parcel = app.inbox.front();
            app.inbox.pop_front();
            Link& link = links_[parcel.peer];
            Session* const session = link.peer->session();
            if (!link.isUp || link.in != parcel.tag || session == nullptr) continue;
            link.outstanding[parcel.at] -= chargeOf(parcel.size, link.owners[parcel.at].second);
            session->consumed(parcel.at, parcel.size);
        }
    }
}

void Node::restart() {
    world_.trace.add("%d: the link is killed", number_);
    for (auto& [peer, link] : links_) {
        world_.books.down(link.in);
        begin(peer);
    }
}

}  // namespace simulate
