#include "tests/traffic/worker.h"

#include <poll.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "tests/kit/signals.h"

namespace traffic {
namespace {

constexpr uint32_t foundNumber = 1010;
constexpr uint32_t noticeNumber = 1011;
constexpr uint32_t timeoutNumber = 1012;
constexpr uint32_t long_ = 60000;  ///< milliseconds

uint32_t& wordIn(LinxSignal* signal) {
    return *reinterpret_cast<uint32_t*>(signal + 1);
}

std::string nameOfWorker(uint32_t worker) {
    return "worker" + std::to_string(worker);
}

void nap(uint32_t microseconds) {
    if (microseconds == 0) return;
    const timespec time = {0, static_cast<long>(microseconds) * 1000};
    nanosleep(&time, nullptr);
}

}  // namespace

void work(Ledger& ledger, const Manner& manner, Line& parent, uint32_t seat, uint32_t process, uint32_t seed) {
    do {
        Worker(ledger, manner, parent, seat, process, seed++).live();
    } while (!ledger.leave && !ledger.retire[seat]);
}

Worker::Worker(Ledger& ledger, const Manner& manner, Line& parent, uint32_t index, uint32_t process, uint32_t seed)
    : ledger_(ledger),
      manner_(manner),
      parent_(parent),
      bytes_(ledger),
      index_(index),
      random_(seed),
      number_(ledger.beginLife(index, process)),
      life_(ledger.life(number_)),
      usesTimers_(draw(3) == 0),
      linx_(linx_open(nameOfWorker(index).c_str(), 0, nullptr)) {
    if (linx_ == nullptr) {
        complain(std::string("cannot open: ") + std::strerror(errno));
        return;
    }
    LinxSignal* fresh = linx_alloc(linx_, sizeof(LinxSignal), 0);
    if (fresh == nullptr) complain(std::string("cannot allocate: ") + std::strerror(errno));
    own_ = linx_sender(linx_, &fresh);
    linx_free_buf(linx_, &fresh);
    life_.spid = own_;
}

Worker::~Worker() {
    life_.closing = true;
    if (linx_ != nullptr && linx_close(linx_) != 0) complain("cannot close");
    if (descriptor_ != -1) close(descriptor_);
}

void Worker::complain(const std::string& text) {
    ledger_.complain("life " + std::to_string(number_) + " of worker " + std::to_string(index_) + ": " + text);
}

void Worker::live() {
    if (linx_ == nullptr) return;
    for (uint32_t whom = 0; whom < ledger_.seats; ++whom) {
        if (whom != index_) hunt(whom);
    }
    while (!ledger_.leave) {
        ++ledger_.beats[index_];
        if (!ledger_.finish) {
            if (draw(400) == 0 || ledger_.retire[index_]) return;
            if (draw(200) == 0) runErrand();
            talk();
        }
        awaitSignal();
        for (uint32_t more = draw(16); more != 0 && take(0, anySignal); --more) {
        }
        nap(manner_.nap);
    }
    drawBalance();
}

void Worker::talk() {
    if (usesTimers_) useTimers();
    for (uint32_t to = 0; to < ledger_.seats; ++to) {
        if (current_[to] != 0 && questions_[to].asked == 0) burst(to);
    }
}

/// A few signals without an answer and then a request, so that nobody is ever far ahead of whom he sends to.
void Worker::burst(uint32_t to) {
    for (uint32_t left = draw(8); left != 0; --left) {
        const bool sent = draw(3) == 0 ? write(to, relay, 0, 1 + draw(3)) : write(to, item, 0, 0);
        if (!sent) return;
    }
    const LinxSpid asked = current_[to];
    const uint32_t question = ++lastId_;
    if (write(to, request, question, 0)) questions_[to] = {asked, question};
}

uint32_t Worker::drawLength() {
    constexpr uint32_t longest = (1u << 20) - signalBytes(0);
    if (manner_.largestIn != ~0u && draw(manner_.largestIn) == 0) return longest - draw(2) * draw(longest);
    return draw(manner_.largeIn) == 0 ? draw(manner_.large) : draw(300);
}

bool Worker::write(uint32_t to, Kind kind, uint32_t question, uint32_t hops) {
    const uint32_t bytes = drawLength();
    LinxSignal* signal = linx_alloc(linx_, signalBytes(bytes), firstNumber + kind);
    if (signal == nullptr) {
        if (errno != ENOMEM) complain(std::string("cannot allocate: ") + std::strerror(errno));
        ++ledger_.noMemory;
        return false;
    }
    Letter& letter = *letterIn(signal);
    letter = {0, 0, 0, question, hops, draw(~0u), bytes, 0};
    fill(letter);
    return post(signal, to, kind);
}

/// Numbers the letter and sends it to whoever is the worker `to` now.
bool Worker::post(LinxSignal* signal, uint32_t to, Kind kind) {
    Outgoing& outgoing = life_.to[to];
    if (outgoing.peer != current_[to]) {
        for (uint32_t k = 0; k < kinds; ++k) outgoing.begun[k] = outgoing.sent[k] = 0;
        outgoing.peer = current_[to];
    }
    Letter& letter = *letterIn(signal);
    letter.from = number_;
    letter.to = current_[to];
    letter.sequence = ++outgoing.begun[kind];
    seal(letter, kind);
    const uint32_t size = signalBytes(letter.bytes);
    if (linx_send(linx_, &signal, current_[to]) != 0) {
        wasRefused(to, errno);
        return false;
    }
    ++outgoing.sent[kind];
    life_.sent.add(size);
    return true;
}

void Worker::wasRefused(uint32_t to, int error) {
    const std::string whom = "life " + std::to_string(ledger_.latest[to]) + " of worker " + std::to_string(to);
    if (error != ECONNRESET) complain("cannot send to " + whom + ": " + std::strerror(error));
    if (ledger_.isLiving(to, current_[to])) complain("is refused by " + whom + ", which lives");
    ++ledger_.refused;
    current_[to] = 0;  // found anew once its end is known
}

/// A signal that is to come back.
LinxSignal* Worker::token(uint32_t number, uint32_t id) {
    LinxSignal* signal = linx_alloc(linx_, 2 * sizeof(uint32_t), number);
    if (signal == nullptr) {
        ++ledger_.noMemory;
    } else {
        wordIn(signal) = id;
    }
    return signal;
}

void Worker::hunt(uint32_t whom) {
    const uint32_t id = ++lastId_;
    LinxSignal* signal = token(foundNumber, id);
    if (signal == nullptr) return;
    hunting_[whom] = id;
    if (linx_hunt(linx_, nameOfWorker(whom).c_str(), &signal) != 0) {
        complain("cannot hunt worker " + std::to_string(whom) + ": " + std::strerror(errno));
    }
}

Worker::Peer& Worker::meet(LinxSpid spid, uint32_t worker) {
    Peer& peer = peers_[spid];
    if (peer.attaches != 0) {
        if (peer.worker != worker) complain("one spid is of two workers");
        return peer;
    }
    peer.worker = worker;
    peer.attaches = 1 + draw(2);
    for (uint32_t i = 0; i < peer.attaches; ++i) attach(spid);
    return peer;
}

/// Sends to this one from now on, unless a later one is known: a hunt's answer may be older than what its successor
/// has sent.
void Worker::address(LinxSpid spid, const Peer& peer) {
    LinxSpid& current = current_[peer.worker];
    if (current == spid || peer.notices != 0) return;
    const bool isLater = ledger_.findLife(peer.worker, spid) > ledger_.findLife(peer.worker, current);
    if (current == 0 || isLater) current = spid;
}

void Worker::attach(LinxSpid spid) {
    const uint32_t id = ++lastId_;
    LinxSignal* notice = token(noticeNumber, id);
    if (notice == nullptr) return complain("has no memory for a notice");
    attached_[id] = spid;
    if (linx_attach(linx_, &notice, spid) == 0) complain(std::string("cannot attach: ") + std::strerror(errno));
}

void Worker::useTimers() {
    if (draw(4) == 0) {
        const uint32_t id = ++lastId_;
        LinxSignal* signal = token(timeoutNumber, id);
        if (signal == nullptr) return;
        const LinxRef reference = linx_request_tmo(linx_, draw(20), &signal);
        if (reference == 0) return complain(std::string("cannot set a timer: ") + std::strerror(errno));
        timers_[id] = reference;
    }
    if (draw(8) == 0 && !timers_.empty()) {
        LinxRef reference = timers_.begin()->second;
        if (linx_cancel_tmo(linx_, &reference) != 0) complain("cannot cancel a time-out that has not come");
        timers_.erase(timers_.begin());
    }
}

/// A second endpoint, for a moment: finds and supervises somebody, leaves a hunt behind.
void Worker::runErrand() {
    LINX* other = linx_open(("errand" + std::to_string(index_)).c_str(), 0, nullptr);
    if (other == nullptr) return complain(std::string("cannot open for an errand: ") + std::strerror(errno));
    linx_hunt(other, nameOfWorker(draw(ledger_.seats)).c_str(), nullptr);
    linx_hunt(other, "nobody", nullptr);
    LinxSignal* notice = linx_alloc(other, sizeof(LinxSignal), noticeNumber);
    if (notice != nullptr && linx_attach(other, &notice, own_) == 0) complain("cannot attach to itself");
    if (linx_close(other) != 0) complain("cannot close after an errand");
}

/// Waits for a signal in one of the ways that there are, and takes it.
void Worker::awaitSignal() {
    if (ledger_.finish) return sleepOn();
    constexpr uint32_t letters[] = {4, firstNumber + item, firstNumber + request, firstNumber + reply,
                                    firstNumber + relay};
    switch (draw(4)) {
        case 0: {
            LinxSignal* signal = nullptr;
            const int size = linx_receive(linx_, &signal, anySignal);
            if (size <= 0) complain(std::string("cannot receive: ") + std::strerror(errno));
            if (size > 0) handle(signal, static_cast<uint32_t>(size));
            break;
        }
        case 1: {
            pollfd readable = {descriptor(), POLLIN, 0};
            while (poll(&readable, 1, -1) == -1 && errno == EINTR) {
            }
            take(0, anySignal);
            break;
        }
        case 2:
            take(0, letters);
            break;
        default:
            take(long_, anySignal);
    }
}

/// While nobody asks, and nobody is killed whose end would wake a sleeper: sleeps until there is a signal, or until
/// the parent says that it goes on.
void Worker::sleepOn() {
    if (take(0, anySignal)) return;
    if (isSettled()) {
        ledger_.settled[index_] = true;
        pollfd readable[] = {{descriptor(), POLLIN, 0}, {parent_.descriptor(), POLLIN, 0}};
        while (poll(readable, 2, -1) == -1 && errno == EINTR) {
        }
        if (readable[1].revents != 0) parent_.hear();
        take(0, anySignal);
    } else {
        take(long_, anySignal);
    }
}

int Worker::descriptor() {
    if (descriptor_ == -1) descriptor_ = linx_get_descriptor(linx_);
    return descriptor_;
}

bool Worker::take(uint32_t milliseconds, const uint32_t* selection) {
    LinxSignal* signal = nullptr;
    const int size = linx_receive_w_tmo(linx_, &signal, milliseconds, selection);
    if (size < 0) complain(std::string("cannot receive: ") + std::strerror(errno));
    if (size <= 0) return false;
    handle(signal, static_cast<uint32_t>(size));
    return true;
}

void Worker::handle(LinxSignal* signal, uint32_t size) {
    ++ledger_.beats[index_];
    ledger_.settled[index_] = false;
    life_.received.add(size);
    if (signal->number - firstNumber < kinds) {
        return handleLetter(signal, size, static_cast<Kind>(signal->number - firstNumber));
    }
    const LinxSpid sender = linx_sender(linx_, &signal);
    const uint32_t number = signal->number;
    const uint32_t id = size == 2 * sizeof(uint32_t) ? wordIn(signal) : 0;
    linx_free_buf(linx_, &signal);
    if (number == foundNumber) return handleFound(sender, id);
    if (number == noticeNumber) return handleNotice(sender, id);
    if (number == timeoutNumber) return handleTimeout(sender, id);
    complain("receives the number " + std::to_string(number));
}

void Worker::handleLetter(LinxSignal* signal, uint32_t size, Kind kind) {
    const Letter letter = size < signalBytes(0) ? Letter{} : *letterIn(signal);
    const LinxSpid sender = linx_sender(linx_, &signal);
    if (!isWhole(*letterIn(signal), kind, size)) {
        linx_free_buf(linx_, &signal);
        return complain("receives a signal that has changed on its way");
    }
    const std::string from = "life " + std::to_string(letter.from);
    if (letter.to != own_) complain("receives what " + from + " sent to another");
    if (ledger_.life(letter.from).spid != sender) complain("is told the wrong sender of a signal of " + from);
    const uint32_t worker = ledger_.life(letter.from).seat % mostSeats;
    Peer& peer = meet(sender, worker);
    address(sender, peer);
    if (peer.notices != 0) complain("hears of the end of " + from + " before its last signal");
    const uint32_t expected = ++peer.received[kind];
    if (letter.sequence != expected) {
        peer.received[kind] = letter.sequence;
        if (letter.sequence > expected) ledger_.losses += letter.sequence - expected;
        complain("receives number " + std::to_string(letter.sequence) + " of " + from + " instead of " +
                 std::to_string(expected) + ", kind " + std::to_string(kind));
    }
    ++ledger_.verified;
    bytes_.add(size);
    if (kind == relay && letter.hops != 0) return passOn(signal);
    linx_free_buf(linx_, &signal);
    if (kind == request && current_[worker] == sender) write(worker, reply, letter.question, 0);
    if (kind == reply) {
        Question& question = questions_[worker];
        if (question.asked != sender || question.number != letter.question) {
            complain("is answered by " + from + " what it did not ask");
        }
        question = {};
    }
}

void Worker::passOn(LinxSignal* signal) {
    const uint32_t to = draw(ledger_.seats);
    if (current_[to] == 0 || ledger_.leave) {
        linx_free_buf(linx_, &signal);
        return;
    }
    --letterIn(signal)->hops;
    if (post(signal, to, relay)) ++ledger_.relayed;
}

void Worker::handleFound(LinxSpid sender, uint32_t id) {
    for (uint32_t whom = 0; whom < ledger_.seats; ++whom) {
        if (id == 0 || hunting_[whom] != id) continue;
        hunting_[whom] = 0;
        ++ledger_.hunts;
        Peer& peer = meet(sender, whom);
        address(sender, peer);
        if (peer.notices != 0) complain("hears of an end before the hunt's answer");
        return;
    }
    complain("is answered a hunt twice, or one that was not");
}

void Worker::handleNotice(LinxSpid sender, uint32_t id) {
    const auto expected = attached_.find(id);
    if (expected == attached_.end()) return complain("is told of an end twice, or without having asked");
    if (expected->second != sender) complain("is told of the end of another");
    attached_.erase(expected);
    ++ledger_.notices;
    Peer& peer = peers_[sender];
    ++peer.notices;
    if (ledger_.isLiving(peer.worker, sender)) complain("is told of the end of somebody who lives");
    compareWithSent(sender, peer);
    if (!peer.hasEnded()) return;
    if (questions_[peer.worker].asked == sender) questions_[peer.worker] = {};
    if (current_[peer.worker] == sender) current_[peer.worker] = 0;
    if (current_[peer.worker] == 0 && hunting_[peer.worker] == 0) hunt(peer.worker);
}

void Worker::handleTimeout(LinxSpid sender, uint32_t id) {
    if (sender != own_) complain("gets a time-out from another");
    if (timers_.erase(id) == 0) complain("gets a time-out twice, or one that was cancelled");
    ++ledger_.timeouts;
}

/// All that the peer has sent must have come: the peer has ended, or sends no more.
void Worker::compareWithSent(LinxSpid spid, const Peer& peer) {
    const uint32_t number = ledger_.findLife(peer.worker, spid);
    const Outgoing& outgoing = ledger_.life(number).to[index_];
    for (uint32_t kind = 0; kind < kinds; ++kind) {
        const bool isToMe = number != 0 && outgoing.peer == own_;
        const uint32_t sent = isToMe ? outgoing.sent[kind].load() : 0;
        const uint32_t begun = isToMe ? outgoing.begun[kind].load() : 0;
        const uint32_t received = peer.received[kind];
        if (begun > sent && peer.notices == 1) ++ledger_.interrupted;
        if (received < sent) ledger_.losses += sent - received;
        if (received >= sent && received <= begun) continue;
        complain("has " + std::to_string(received) + " signals of life " + std::to_string(number) + ", which sent " +
                 std::to_string(sent) + ", kind " + std::to_string(kind));
    }
}

bool Worker::isSettled() const {
    for (uint32_t other = 0; other < ledger_.seats; ++other) {
        if (other != index_ && (questions_[other].asked != 0 || hunting_[other] != 0 || current_[other] == 0)) {
            return false;
        }
    }
    for (const auto& [id, spid] : attached_) {
        const uint32_t life = ledger_.findLife(peers_.at(spid).worker, spid);  // 0 while it opens
        if (life != 0 && !ledger_.isLiving(life)) return false;
    }
    return timers_.empty();
}

void Worker::drawBalance() {
    ++ledger_.standing;
    if (!ledger_.standing.reaches(ledger_.seats)) return complain("does not see all others stand still");
    while (take(0, anySignal)) {
    }
    for (const auto& [spid, peer] : peers_) {
        if (!peer.hasEnded()) compareWithSent(spid, peer);
    }
    ++ledger_.checked;
    if (!ledger_.checked.reaches(ledger_.seats)) complain("does not see all others draw the balance");
    if (!ledger_.dismissed.reaches(1)) complain("is not dismissed");
}

}  // namespace traffic
