#include "link/program/node.h"

#include <poll.h>
#include <sys/random.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "link/program/service_manager.h"
#include "log/LogLevel.h"
#include "platform/LogClient.h"

namespace linx::link {
namespace {

constexpr Time longestLeave = std::chrono::milliseconds(200);
constexpr int mostRounds = 8;  ///< before it is looked whether to stop
constexpr Time longestSleep = std::chrono::seconds(60);

Time now() {
    return std::chrono::duration_cast<Time>(std::chrono::steady_clock::now().time_since_epoch());
}

uint64_t randomNumber() {
    uint64_t number = 0;
    // So few bytes are never given in parts; it is only waited for while the machine starts.
    while (getrandom(&number, sizeof number, 0) == -1 && errno == EINTR) {
    }
    return number;
}

NodeId randomNode() {
    Bytes bytes;
    Writer(bytes).u64(randomNumber());
    Writer(bytes).u64(randomNumber());
    NodeId node = {};
    std::copy(bytes.begin(), bytes.end(), node.begin());
    return node;
}

Settings settingsOf(const LinkConfiguration& link, const NodeId& node) {
    Settings settings;
    settings.node = node;
    settings.byteOrder = __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__ ? ByteOrder::bigEndian : ByteOrder::littleEndian;
    settings.wordBytes = sizeof(void*);
    settings.tolerance = link.tolerance;
    return settings;
}

void note(const std::string& text) {
    LogClient* const client = LogClient::Instance();
    if ((client->Level() & e_LogEvent) != 0) SysLogMsg().Log(e_LogEvent, client->ProcessName()) << text;
}

std::string describe(const Hello& peer) {
    const char* const order = peer.byteOrder == ByteOrder::bigEndian ? "highest" : "lowest";
    return std::to_string(8 * peer.wordBytes) + " bits, " + order + " byte first";
}

bool isReadable(int descriptor) {
    pollfd polled = {descriptor, POLLIN, 0};
    return poll(&polled, 1, 0) == 1;
}

}  // namespace

Node::Node(const Setup& setup, ZmqEngine& engine)
    : engine_(engine),
      links_(setup.configuration.links),
      board_(engine, randomNumber),
      troubles_(links_.size()),
      phases_(links_.size(), Phase{now(), {}}) {
    const NodeId node = randomNode();
    transit_.node = node;
    for (const LinkConfiguration& link : links_) {
        // Both sides have to see it the same way.
        const Peer::Side side = setup.keys.publicKey < link.peer ? Peer::Side::lower : Peer::Side::higher;
        board_.add(settingsOf(link, node), side, !link.connect.empty());
    }
}

void Node::run(int stop) {
    ServiceManager manager;
    manager.ready();
    while (!isReadable(stop)) {
        const Time deadline = turn();
        manager.tellStatus(std::to_string(upCount()) + " of " + std::to_string(links_.size()) + " links are up");
        rest(std::min(deadline, manager.keepAlive(now())), stop);
    }
    manager.stopping();
    takeLeave();
}

std::string Node::open() {
    for (size_t i = 0; i < links_.size(); ++i) {
        const LinkConfiguration& link = links_[i];
        Gateway::Setup setup = {link.name, {link.exports, link.transit, link.allowControl}, link.imports, [this, i] {
                                    return statusOf(i);
                                }};
        gateways_.push_back(std::make_unique<Gateway>(board_.peer(PeerNumber(i)), std::move(setup), transit_, note));
        if (!gateways_.back()->isOpen()) return "cannot open " + link.name + ": " + std::strerror(errno);
    }
    return {};
}

void Node::rest(Time deadline, int stop) {
    const Time left = std::clamp(deadline - now(), Time(0), longestSleep);
    std::vector<pollfd> polled = {{engine_.descriptor(), POLLIN, 0}, {stop, POLLIN, 0}};
    for (const auto& gateway : gateways_) polled.push_back({gateway->descriptor(), POLLIN, 0});
    poll(polled.data(), polled.size(), static_cast<int>((left.count() + 999) / 1000));
}

Time Node::turn() {
    Time deadline = board_.turn(now());
    // What the proxies have done gives the peers something to say, and the other way round.
    for (int round = 0; serve(); ++round) {
        if (round == mostRounds) return now();
        deadline = board_.turn(now());
    }
    for (const auto& gateway : gateways_) deadline = std::min(deadline, gateway->deadline());
    for (size_t i = 0; i < links_.size(); ++i) tellOfTrouble(i);
    tellOfStrangers();
    return deadline;
}

/// Whether there was anything to do.
bool Node::serve() {
    bool hasDone = false;
    for (size_t i = 0; i < gateways_.size(); ++i) {
        hasDone = gateways_[i]->turn(now(), [&](const Event& event) { tell(i, event); }) || hasDone;
    }
    return hasDone;
}

void Node::tell(size_t link, const Event& event) {
    const std::string& name = links_[link].name;
    if (const Up* const up = std::get_if<Up>(&event)) {
        phases_[link] = {now(), {}};
        note(name + " is up; over there: " + describe(up->peer));
    } else if (const Down* const down = std::get_if<Down>(&event)) {
        phases_[link] = {now(), textOf(down->reason)};
        note(name + " is down: " + phases_[link].reason);
    }
}

Status Node::statusOf(size_t link) {
    constexpr size_t most = 32;  // a peer chooses how many there are
    const auto number = PeerNumber(link);
    Peer& peer = board_.peer(number);
    const Gateway& gateway = *gateways_[link];
    Status status;
    status.peer = links_[link].peer;
    status.seconds =
        static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::seconds>(now() - phases_[link].since).count());
    status.refused = gateway.tally().refused();
    status.lost = gateway.tally().lost();
    for (const std::string& name : gateway.denied()) {
        if (status.denied.size() < most) status.denied.push_back(name);
    }
    if (const Session* const session = peer.session()) {
        const Terms& terms = *session->terms();
        status.state = "up";
        status.byteOrder = terms.peer.byteOrder == ByteOrder::bigEndian ? "big" : "little";
        status.wordBits = 8 * terms.peer.wordBytes;
        status.roundTrip = static_cast<uint64_t>(session->counts().roundTrip.count());
        status.window = terms.windowOut;
        status.inFlight = session->bytesInFlight();
        status.waiting = session->bytesOut();
        for (const Outgoing::Queued& one : session->queued()) {
            if (status.destinations.size() < most)
                status.destinations.push_back({one.name, one.signals, one.bytes, one.credit});
        }
        return status;
    }
    status.state = peer.isConnecting() ? "connecting" : "down";
    const std::string& trouble = board_.trouble(number);
    status.reason = trouble.empty() ? phases_[link].reason : trouble;
    return status;
}

/// Once for each reason, however often it is dialled in vain.
void Node::tellOfTrouble(size_t link) {
    const std::string& trouble = board_.trouble(PeerNumber(link));
    if (trouble == troubles_[link]) return;
    troubles_[link] = trouble;
    if (!trouble.empty()) note(links_[link].name + " cannot be dialled: " + trouble);
}

/// Less and less often, as strangers may come without end.
void Node::tellOfStrangers() {
    const uint64_t strangers = engine_.strangers();
    if (strangers == strangersTold_ || strangers < 2 * strangersTold_) return;
    strangersTold_ = strangers;
    note("turned away for their keys so far: " + std::to_string(strangers));
}

size_t Node::upCount() {
    size_t count = 0;
    for (size_t i = 0; i < board_.size(); ++i) {
        if (board_.peer(PeerNumber(i)).session() != nullptr) ++count;
    }
    return count;
}

void Node::takeLeave() {
    const Time latest = now() + longestLeave;
    for (size_t i = 0; i < board_.size(); ++i) board_.peer(PeerNumber(i)).leave(latest);
    Time deadline = turn();
    while (upCount() != 0 && now() < 2 * longestLeave + latest) {
        rest(deadline, -1);
        deadline = turn();
    }
}

}  // namespace linx::link
