#include "tests/link/storm/storm.h"

#include <time.h>

#include <algorithm>

#include "platform/linx.h"
#include "tests/link/storm/server.h"

namespace linkstorm {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

/// How long anybody may need to find the others again, and a link to notice another's silence.
constexpr seconds longestPatience(30);
constexpr const char* tolerance = "tolerance = 1000\n";
constexpr uint32_t strikesBetweenRests = 32;
/// Each proxy of a link may ring each server of its domain.
constexpr size_t mostBells = (seats - seatsOfNode) * seatsOfNode;

std::string nameOfPair(uint32_t from, uint32_t to) {
    return std::to_string(from) + " to " + std::to_string(to);
}

/// What a process has open.
std::vector<std::string> descriptorsOf(pid_t process) {
    const std::string directory = "/proc/" + std::to_string(process) + "/fd";
    std::vector<std::string> all;
    for (const std::string& name : linxtest::namesIn(directory)) {
        char target[200] = {};
        if (readlink((directory + "/" + name).c_str(), target, sizeof target - 1) != -1) all.emplace_back(target);
    }
    return all;
}

/// The doorbell of an endpoint that has ended is a file without a name.
size_t bellsOfEnded(const std::vector<std::string>& descriptors) {
    return static_cast<size_t>(std::count_if(descriptors.begin(), descriptors.end(), [](const std::string& target) {
        return target.find("(deleted)") != std::string::npos;
    }));
}

}  // namespace

Storm::Storm(Books& books, uint32_t seed)
    : books_(books), random_(seed), nodes_({domains_[0].path(), domains_[1].path(), domains_[2].path()}, tolerance) {
    // Made before anybody is killed: who dies while it makes an arena leaves the unfinished file.
    for (const linxtest::TestDomain& domain : domains_) {
        const linxtest::ScopedVariable variable("LINX_DOMAIN", domain.path().c_str());
        linx_close(linx_open("first", 0, nullptr));
    }
    for (uint32_t node = 0; node < nodes; ++node) startLink(node);
    for (uint32_t seat = 0; seat < seats; ++seat) spawn(seat);
}

Storm::~Storm() {
    for (const auto& link : links_) link->send(SIGCONT);
}

void Storm::rage(uint32_t kills) {
    books_.epoch = 1;
    await("to begin", [&] { return areAllHeard(); });
    rest();
    while (this->kills() < kills && books_.complaintCount == 0) {
        pause(draw(4) == 0 ? draw(100000) : draw(8000));
        strike();
        if (figures_.strikes % strikesBetweenRests == 0) rest();
    }
    if (books_.complaintCount == 0) rest();
    auditCounts();
    calm();
}

void Storm::spawn(uint32_t seat) {
    const uint32_t life = ++books_.life[seat];
    for (uint32_t other = 0; other < seats; ++other) books_.heard[seat][other] = 0;
    const uint32_t seed = draw(~0u);
    servers_[seat] = std::make_unique<Child>([this, seat, life, seed](Line&) {
        setenv("LINX_DOMAIN", domains_[nodeOf(seat)].path().c_str(), 1);
        Server(books_, seat, life, seed).live();
    });
}

void Storm::startLink(uint32_t node) {
    links_[node] = nodes_.start(node);
}

/// Draws whom to hit. A stop alone leaves every session as it is, unless it is long.
Storm::Strike Storm::prepare() {
    Strike strike;
    const auto hits = 1 + draw(3);
    for (uint32_t i = 0; i < hits; ++i) {
        const uint32_t node = draw(nodes);
        const uint32_t seat = draw(seats);
        switch (draw(10)) {
            case 0:
                strike.stoppedServers.insert(seat);
                break;
            case 1:
                strike.stoppedLinks.insert(node);
                break;
            case 2:
                if (draw(2) == 0) strike.silentLinks.insert(node);
                break;
            case 3:
            case 4:
            case 5:
                strike.links.insert(node);
                break;
            default:
                strike.servers.insert(seat);
        }
    }
    // Two stand still together only for short.
    if (!strike.silentLinks.empty()) strike.silentLinks = {*strike.silentLinks.begin()};
    for (const uint32_t node : strike.silentLinks) strike.stoppedLinks.erase(node);
    for (const uint32_t node : strike.links) {
        strike.stoppedLinks.erase(node);
        strike.silentLinks.erase(node);
    }
    for (const uint32_t seat : strike.servers) strike.stoppedServers.erase(seat);
    return strike;
}

bool Storm::endsSession(const Strike& strike, uint32_t node, uint32_t other) const {
    const auto ends = [&](uint32_t one) { return strike.links.count(one) + strike.silentLinks.count(one) != 0; };
    return node != other && (ends(node) || ends(other));
}

/// Before anything happens, so that nobody takes what comes of it for a fault.
void Storm::announce(const Strike& strike) {
    for (const uint32_t seat : strike.servers) books_.struck[seat] = true;
    for (uint32_t node = 0; node < nodes; ++node) {
        for (uint32_t other = 0; other < nodes; ++other) {
            if (!endsSession(strike, node, other)) continue;
            books_.stormy[node][other] = true;
            ++books_.era[node][other];
        }
    }
}

void Storm::strike() {
    Strike strike = prepare();
    readLogs();
    for (uint32_t node = 0; node < nodes; ++node) {
        for (uint32_t other = 0; other < nodes; ++other) {
            strike.counted[node][other] = logs_[node].of(other).lost;
            strike.ups[node][other] = logs_[node].of(other).ups;
            strike.downs[node][other] = logs_[node].of(other).downs;
        }
    }
    announce(strike);
    ++figures_.strikes;
    perform(strike);
    const Clock::time_point begin = Clock::now();
    recover(strike);
    figures_.longestRecovery = std::max(figures_.longestRecovery, Clock::now() - begin);
    if (books_.complaintCount != 0) return;
    audit(strike);
    for (auto& struck : books_.struck) struck = false;
    for (auto& row : books_.stormy) {
        for (auto& pair : row) pair = false;
    }
}

void Storm::perform(const Strike& strike) {
    for (const uint32_t seat : strike.stoppedServers) servers_[seat]->stop();
    for (const uint32_t node : strike.stoppedLinks) links_[node]->stop();
    for (const uint32_t node : strike.silentLinks) links_[node]->stop();
    if (draw(2) == 0) pause(draw(3000));
    // Links before servers, or the other way round, or so that one ends while the other is being replaced.
    const bool linksFirst = draw(2) == 0;
    for (const bool areLinks : {linksFirst, !linksFirst}) {
        if (areLinks) {
            for (const uint32_t node : strike.links) killLink(node);
        } else {
            for (const uint32_t seat : strike.servers) killServer(seat);
        }
        if (draw(2) == 0) pause(draw(3000));
    }
    if (!strike.stoppedLinks.empty() || !strike.stoppedServers.empty()) pause(draw(150000));
    for (const uint32_t node : strike.stoppedLinks) links_[node]->send(SIGCONT);
    awaitSilence(strike);
    for (const uint32_t node : strike.silentLinks) links_[node]->send(SIGCONT);
    for (const uint32_t seat : strike.stoppedServers) servers_[seat]->cont();
    figures_.serverStops += static_cast<uint32_t>(strike.stoppedServers.size());
    figures_.shortStops += static_cast<uint32_t>(strike.stoppedLinks.size());
    figures_.longStops += static_cast<uint32_t>(strike.silentLinks.size());
}

void Storm::killServer(uint32_t seat) {
    books_.doomed[seat] = books_.life[seat].load();
    servers_[seat]->kill9();
    ++figures_.serverKills;
    if (draw(2) == 0) pause(draw(5000));
    spawn(seat);
}

void Storm::killLink(uint32_t node) {
    links_[node]->end(SIGKILL);
    logs_[node].read(*links_[node]);
    logs_[node].end();
    ++figures_.linkKills;
    if (draw(2) == 0) pause(draw(50000));
    startLink(node);
}

/// A link that stands still is given up by all others before it may go on.
void Storm::awaitSilence(const Strike& strike) {
    for (const uint32_t node : strike.silentLinks) {
        for (uint32_t other = 0; other < nodes; ++other) {
            // Who was killed meanwhile has nothing to give up.
            if (other == node || strike.links.count(other) != 0) continue;
            await("the silence of a link to be noticed",
                  [&] { return logs_[other].of(node).downs > strike.downs[other][node]; });
        }
    }
}

bool Storm::areSessionsBack(const Strike& strike) const {
    for (uint32_t node = 0; node < nodes; ++node) {
        for (uint32_t other = 0; other < nodes; ++other) {
            if (!endsSession(strike, node, other)) continue;
            const LinkLog::Peer& peer = logs_[node].of(other);
            if (!peer.isUp || peer.ups == strike.ups[node][other]) return false;
        }
    }
    return true;
}

/// Everybody has asked everybody else in this epoch, and has been answered by who holds the seat.
bool Storm::areAllHeard() const {
    for (uint32_t seat = 0; seat < seats; ++seat) {
        if (books_.looked[seat] != books_.epoch) return false;
        for (uint32_t other = 0; other < seats; ++other) {
            if (nodeOf(seat) == nodeOf(other)) continue;
            if (books_.heard[seat][other] != books_.epoch) return false;
            if (books_.answerer[seat][other] != books_.life[other]) return false;
        }
    }
    return true;
}

void Storm::recover(const Strike& strike) {
    await("the sessions to be back", [&] { return areSessionsBack(strike); });
    ++books_.epoch;
    await("all to be heard again", [&] { return areAllHeard(); });
}

/// Looks at the streams that have ended since the last time.
void Storm::audit(const Strike& strike) {
    readLogs();
    uint64_t lost[nodes][nodes] = {};
    for (uint32_t from = 0; from < seats; ++from) {
        for (uint32_t to = 0; to < seats; ++to) {
            const uint32_t latest = books_.streams[from][to];
            for (uint32_t number = audited_[from][to] + 1; number < latest; ++number) {
                const Stream& stream = books_.at(from, to, number);
                if (stream.number == number) auditStream(strike, from, to, stream, lost);
            }
            if (latest != 0) audited_[from][to] = latest - 1;
        }
    }
    for (uint32_t node = 0; node < nodes; ++node) {
        for (uint32_t other = 0; other < nodes; ++other) {
            const uint64_t counted = logs_[node].of(other).lost - strike.counted[node][other];
            figures_.countedByLinks += counted;
            if (strike.links.count(node) != 0) {
                figures_.lostWithLinks += lost[node][other];
                continue;
            }
            figures_.lostWithSessions += lost[node][other];
            if (lost[node][other] > counted) figures_.uncounted += lost[node][other] - counted;
        }
    }
}

void Storm::auditStream(const Strike& strike, uint32_t from, uint32_t to, const Stream& stream,
                        uint64_t (&lost)[nodes][nodes]) {
    if (strike.servers.count(to) != 0) return;  // what is sent to the dead is nobody's
    const uint32_t sent = stream.sent;
    const uint32_t received = stream.received;
    if (received >= sent && received <= stream.begun) return;
    if (received < sent && books_.stormy[nodeOf(from)][nodeOf(to)]) {
        if (strike.servers.count(from) == 0) lost[nodeOf(from)][nodeOf(to)] += sent - received;
        return;
    }
    if (received < sent) books_.lost += sent - received;
    books_.complain("of stream " + std::to_string(stream.number) + " from server " + nameOfPair(from, to) + " " +
                    std::to_string(received) + " have come of " + std::to_string(sent));
}

/// Nobody asks any more, everything that was sent has come, and the links hold what they held at first.
void Storm::rest() {
    books_.quiet = true;
    if (await("all that was sent to come", [&] { return isDelivered(); })) compareDescriptors();
    if (books_.complaintCount == 0) books_.quiet = false;
}

bool Storm::isDelivered() const {
    for (uint32_t from = 0; from < seats; ++from) {
        for (uint32_t to = 0; to < seats; ++to) {
            if (nodeOf(from) == nodeOf(to)) continue;
            const Stream& stream = books_.latest(from, to);
            if (stream.received != stream.begun) return false;
        }
    }
    return true;
}

/// A link opens the doorbells of those it rings, so it may come to have a few more than at first, but none of the
/// ended.
void Storm::compareDescriptors() {
    for (uint32_t node = 0; node < nodes; ++node) {
        std::vector<std::string> now;
        await("the link of node " + std::to_string(node) + " to let go of the ended", [&] {
            now = descriptorsOf(links_[node]->pid());
            return bellsOfEnded(now) == 0;
        });
        size_t& first = descriptors_[node];
        if (first == 0) first = now.size();
        figures_.mostDescriptors = std::max(figures_.mostDescriptors, now.size());
        if (now.size() <= first + mostBells) continue;
        books_.complain("the link of node " + std::to_string(node) + " has " + std::to_string(now.size()) +
                        " descriptors, at first " + std::to_string(first));
    }
}

/// What is sent while a proxy closes, behind the link's last look into its mailbox, is lost without being counted.
/// That is seldom more than one letter of all that a session loses.
void Storm::auditCounts() {
    const uint64_t tolerable = 20 + figures_.lostWithSessions / 100;
    if (figures_.uncounted <= tolerable) return;
    books_.complain("the links have lost " + std::to_string(figures_.lostWithSessions) +
                    ", of which they do not count " + std::to_string(figures_.uncounted));
}

/// All take their leave, and leave nothing.
void Storm::calm() {
    books_.quiet = books_.leave = true;
    const bool isFine = books_.complaintCount == 0;
    for (auto& struck : books_.struck) struck = true;
    for (auto& link : links_) link->send(SIGCONT);
    for (uint32_t seat = 0; seat < seats; ++seat) {
        if (!isFine) servers_[seat]->kill9();
        const int status = isFine ? servers_[seat]->exitStatus() : 0;
        if (status != 0) books_.complain("server " + std::to_string(seat) + " ends with " + std::to_string(status));
    }
    for (uint32_t node = 0; node < nodes; ++node) {
        const int status = links_[node]->end(SIGTERM);
        logs_[node].read(*links_[node]);
        if (!isFine) std::fputs(("node " + std::to_string(node) + ":\n" + logs_[node].recent()).c_str(), stdout);
        if (status != 0) books_.complain("a link ends with " + std::to_string(status));
        if (!isFine) continue;
        for (const std::string& file : domains_[node].leftovers()) books_.complain("left behind: " + file);
    }
}

void Storm::readLogs() {
    for (uint32_t node = 0; node < nodes; ++node) logs_[node].read(*links_[node]);
}

bool Storm::await(const std::string& what, const std::function<bool()>& condition) {
    const Clock::time_point limit = Clock::now() + longestPatience;
    while (books_.complaintCount == 0) {
        readLogs();
        if (condition()) return true;
        if (Clock::now() > limit) books_.complain("waited in vain for " + what);
        pause(500);
    }
    return false;
}

void Storm::pause(uint32_t microseconds) {
    const timespec moment = {microseconds / 1000000, static_cast<long>(microseconds % 1000000) * 1000};
    nanosleep(&moment, nullptr);
}

}  // namespace linkstorm
