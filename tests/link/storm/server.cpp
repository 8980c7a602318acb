#include "tests/link/storm/server.h"

#include <cerrno>
#include <cstring>

#include "tests/kit/signals.h"
#include "tests/link/program/nodes.h"

namespace linkstorm {
namespace {

using traffic::Kind;
using traffic::Letter;

constexpr uint32_t noticeNumber = 2000;
constexpr uint32_t huntNumber = 3000;  // and the seat
constexpr uint32_t mostUnanswered = 24;

std::string nameOf(uint32_t seat) {
    return "server" + std::to_string(seat);
}

}  // namespace

Server::Server(Books& books, uint32_t seat, uint32_t life, uint32_t seed)
    : books_(books), seat_(seat), life_(life), random_(seed), endpoint_(nameOf(seat)) {}

void Server::live() {
    for (uint32_t seat = 0; seat < seats; ++seat) {
        if (isFar(seat)) hunt(seat);
    }
    while (!books_.leave) {
        const uint32_t epoch = books_.epoch;
        uint32_t taken = 0;
        while (taken < 64 && take(0)) ++taken;
        if (taken == 0 && books_.looked[seat_] != epoch && hasHeardAll(epoch)) {
            look();
            books_.looked[seat_] = epoch;
        }
        for (uint32_t seat = 0; seat < seats; ++seat) talkTo(seat);
        if (taken == 0) take(2);
    }
}

void Server::hunt(uint32_t seat) {
    peers_[seat].isHunted = true;
    LinxSignal* answer = linx_alloc(endpoint_, sizeof(LinxSignal), huntNumber + seat);
    const std::string name = linktest::Nodes::linkTo(nodeOf(seat)) + "/" + nameOf(seat);
    if (answer == nullptr || linx_hunt(endpoint_, name.c_str(), &answer) != 0) complain("cannot hunt");
}

void Server::meet(LinxSpid spid, uint32_t seat) {
    const auto known = proxies_.find(spid);
    if (known == proxies_.end()) {
        proxies_[spid] = {seat, books_.era[nodeOf(seat_)][nodeOf(seat)], 0, 0, false};
        ++books_.meetings;
        if (attach(endpoint_, spid, noticeNumber) == 0)
            complain(std::string("cannot attach: ") + std::strerror(errno));
        address(spid, seat);
    } else {
        if (known->second.seat != seat) complain("knows a proxy by two names");
        if (!known->second.hasEnded && peers_[seat].proxy == 0) address(spid, seat);
    }
}

/// Sends to that one from now on, as a stream of its own. The end of the last one may be told later: nothing orders
/// it with what another proxy sends.
void Server::address(LinxSpid spid, uint32_t seat) {
    Peer& peer = peers_[seat];
    peer.proxy = spid;
    peer.isRefused = false;
    peer.asked = peer.unanswered = peer.owed = 0;
    const uint32_t number = books_.streams[seat_][seat] + 1;
    Stream& stream = books_.at(seat_, seat, number);
    stream.number = 0;
    stream.from = life_;
    stream.begun = stream.sent = stream.received = 0;
    stream.number = number;
    books_.streams[seat_][seat] = number;
}

bool Server::take(uint32_t milliseconds) {
    LinxSignal* signal = nullptr;
    const int size = linx_receive_w_tmo(endpoint_, &signal, milliseconds, anySignal);
    if (size < 0) complain(std::string("cannot receive: ") + std::strerror(errno));
    if (size <= 0) return false;
    const uint32_t number = signal->number;
    if (number - traffic::firstNumber < traffic::kinds) {
        handleLetter(signal, static_cast<uint32_t>(size), static_cast<Kind>(number - traffic::firstNumber));
        linx_free_buf(endpoint_, &signal);
        return true;
    }
    const LinxSpid sender = linx_sender(endpoint_, &signal);
    linx_free_buf(endpoint_, &signal);
    if (number == noticeNumber) {
        handleNotice(sender);
    } else if (number - huntNumber < seats && peers_[number - huntNumber].isHunted) {
        peers_[number - huntNumber].isHunted = false;
        // It may have ended since, or have spoken before.
        meet(sender, number - huntNumber);
        if (peers_[number - huntNumber].proxy == 0) hunt(number - huntNumber);
    } else {
        complain("receives the number " + std::to_string(number));
    }
    return true;
}

void Server::handleNotice(LinxSpid spid) {
    const auto it = proxies_.find(spid);
    if (it == proxies_.end() || it->second.hasEnded) return complain("is told of an end twice, or unasked");
    it->second.hasEnded = true;
    ++books_.notices;
    const uint32_t seat = it->second.seat;
    if (!books_.mayEnd(seat_, seat)) {
        ++books_.early;
        complain("is told of the end of server " + std::to_string(seat) + ", which lives as does the session");
    }
    Peer& peer = peers_[seat];
    if (peer.proxy != spid) return;
    peer.proxy = 0;
    if (!peer.isHunted) hunt(seat);
}

void Server::handleLetter(LinxSignal* signal, uint32_t size, Kind kind) {
    const Letter& letter = *traffic::letterIn(signal);
    if (!traffic::isWhole(letter, kind, size) || letter.from >= seats || !isFar(letter.from)) {
        ++books_.changed;
        return complain("receives what has changed on its way");
    }
    const LinxSpid sender = linx_sender(endpoint_, &signal);
    meet(sender, letter.from);
    Proxy& proxy = proxies_[sender];
    countIn(proxy, letter, size);
    if (kind == traffic::request && peers_[letter.from].proxy == sender) {
        peers_[letter.from].owed = letter.question;
    }
    if (kind == traffic::reply) answered(letter.from, letter);
}

/// Letters of a stream come in order from the first one on, and a proxy brings one stream.
void Server::countIn(Proxy& from, const Letter& letter, uint32_t size) {
    const std::string what = "number " + std::to_string(letter.sequence) + " of stream " + std::to_string(letter.to) +
                             " from server " + std::to_string(letter.from);
    if (from.hasEnded) {
        ++books_.early;
        complain("hears of the end before " + what);
    }
    if (from.stream == 0) from.stream = letter.to;
    if (from.stream != letter.to) {
        complain("receives " + what + " within stream " + std::to_string(from.stream));
    } else if (letter.sequence <= from.received) {
        ++books_.doubled;
        complain("receives again, or late, " + what);
    } else if (letter.sequence != from.received + 1) {
        books_.lost += letter.sequence - from.received - 1;
        complain("receives after " + std::to_string(from.received) + " " + what);
    }
    from.received = letter.sequence;
    Stream& stream = books_.at(letter.from, seat_, letter.to);
    if (stream.number == letter.to) stream.received = letter.sequence;
    ++books_.letters;
    books_.bytes += size;
}

void Server::answered(uint32_t seat, const Letter& letter) {
    Peer& peer = peers_[seat];
    if (peer.asked != letter.question) return complain("is answered what it did not ask");
    peer.asked = peer.unanswered = 0;
    ++books_.replies;
    books_.answerer[seat_][seat] = letter.hops;
    books_.heard[seat_][seat] = peer.askedIn;
}

/// As much as a peer may be behind, and not more: what is asked shows how far it is.
void Server::talkTo(uint32_t seat) {
    Peer& peer = peers_[seat];
    if (peer.proxy != 0 && peer.owed != 0 && write(seat, traffic::reply, peer.owed)) peer.owed = 0;
    if (books_.quiet) return;
    if (peer.proxy != 0 && peer.asked == 0) {
        const uint32_t epoch = books_.epoch;
        const uint32_t question = ++lastQuestion_;
        if (write(seat, traffic::request, question)) {
            peer.asked = question;
            peer.askedIn = epoch;
        }
    }
    for (uint32_t left = draw(4); left != 0 && peer.proxy != 0 && peer.unanswered < mostUnanswered; --left) {
        if (!write(seat, traffic::item, 0)) return;
        ++peer.unanswered;
    }
}

uint32_t Server::drawBytes() {
    const uint32_t kind = draw(200);
    if (kind == 0) return draw(400000);
    if (kind < 10) return draw(40000);
    return draw(300);
}

bool Server::write(uint32_t seat, Kind kind, uint32_t question) {
    Peer& peer = peers_[seat];
    if (peer.isRefused) return false;
    const uint32_t bytes = drawBytes();
    LinxSignal* signal = linx_alloc(endpoint_, traffic::signalBytes(bytes), traffic::firstNumber + kind);
    if (signal == nullptr) {
        ++books_.noMemory;
        return false;
    }
    Stream& stream = books_.latest(seat_, seat);
    Letter& letter = *traffic::letterIn(signal);
    letter = {seat_, stream.number, stream.begun + 1, question, life_, static_cast<uint32_t>(random_()), bytes, 0};
    traffic::fill(letter);
    traffic::seal(letter, kind);
    ++stream.begun;
    if (linx_send(endpoint_, &signal, peer.proxy) == 0) {
        ++stream.sent;
        return true;
    }
    if (errno != ECONNRESET) complain(std::string("cannot send: ") + std::strerror(errno));
    peer.isRefused = true;
    ++books_.refusals;
    if (!books_.mayEnd(seat_, seat)) {
        ++books_.early;
        complain("is refused by server " + std::to_string(seat) + ", which lives as does the session");
    }
    return false;
}

bool Server::hasHeardAll(uint32_t epoch) const {
    for (uint32_t seat = 0; seat < seats; ++seat) {
        if (isFar(seat) && books_.heard[seat_][seat] != epoch) return false;
    }
    return true;
}

/// When everything that had come has been taken, and all have answered: nobody has two proxies then, and none of a
/// session that has ended.
void Server::look() {
    bool isMet[seats] = {};
    for (const auto& [spid, proxy] : proxies_) {
        if (proxy.hasEnded) continue;
        const bool isCurrent = proxy.era == books_.era[nodeOf(seat_)][nodeOf(proxy.seat)] && !isMet[proxy.seat];
        isMet[proxy.seat] = true;
        if (isCurrent) continue;
        ++books_.missing;
        complain("is not told of an end of server " + std::to_string(proxy.seat));
    }
}

void Server::complain(const std::string& text) {
    books_.complain("server " + std::to_string(seat_) + " " + text);
}

}  // namespace linkstorm
