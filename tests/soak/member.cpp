#include "tests/soak/member.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/Watchdog.h"
#include "tests/traffic/letter.h"
#include "tests/traffic/pulse.h"

namespace soak {
namespace {

using traffic::firstNumber;
using traffic::letterIn;

constexpr uint32_t timeoutNumber = 1900;
constexpr uint32_t replyNumber = firstNumber + traffic::reply;
constexpr uint32_t questionBits = 12;  ///< of a question's number; the rest tells the life
constexpr uint32_t firstBare = 2000;
constexpr uint32_t bares = 256;             ///< signals without a letter tell as much of their count
constexpr uint32_t firstNotice = 1u << 30;  ///< a notice's number tells the life that has ended
constexpr uint32_t notices = 1u << 30;
constexpr int limit = static_cast<int>(patience);
constexpr uint32_t longestPayload = 65532;
constexpr std::chrono::milliseconds turnTime(3);

Letter* letterIn(IpcMessage& message) {
    return reinterpret_cast<Letter*>(message.DataPtr());
}

int millisecondsUntil(traffic::Clock::time_point end) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - traffic::Clock::now());
    return std::max(0, static_cast<int>(left.count()));
}

}  // namespace

std::string nameOfMember(uint32_t seat) {
    const char* role = isServer(seat) ? "server" : isClient(seat) ? "client" : "visitor";
    return role + std::to_string(seat);
}

Member::Member(Board& board, uint32_t seat, uint32_t process, uint32_t seed)
    : board_(board),
      ledger_(board.members),
      seat_(seat),
      process_(process),
      random_(seed),
      number_(ledger_.beginLife(seat, process)),
      life_(ledger_.life(number_)),
      bytes_(ledger_),
      endpoint_(nameOfMember(seat)) {
    for (const Kind kind : {traffic::item, traffic::request, traffic::reply}) {
        endpoint_.RegisterHandler(firstNumber + kind, onLetter, this);
    }
    endpoint_.RegisterRelayHandler(firstNumber + traffic::relay, onRelay, this);
    endpoint_.RegisterDefault(onOther, this);
    const int result = endpoint_.Init();
    if (result != 0) complain(std::string("cannot open: ") + std::strerror(result));
}

Member::~Member() {
    life_.closing = true;
}

void Member::complain(const std::string& text) {
    ledger_.complain("life " + std::to_string(number_) + " of " + nameOfMember(seat_) + ": " + text);
}

uint32_t Member::drawOtherServer() {
    const uint32_t other = draw(isServer(seat_) ? servers - 1 : servers);
    return isServer(seat_) && other >= seat_ ? other + 1 : other;
}

void Member::compose(IpcMessage& message, uint32_t to, Kind kind, uint32_t question, uint32_t hops) {
    constexpr uint32_t longest = longestPayload - sizeof(Letter);
    uint32_t bytes = draw(300);
    if (draw(board_.round == 0 ? 4 : 20) == 0) bytes = draw(8) == 0 ? longest : draw(longest);
    const Letter letter = {number_, to, ++life_.to[to].begun[kind], question, hops, draw(~0u), bytes, 0};
    if (message.Allocate(firstNumber + kind, static_cast<uint32_t>(sizeof letter) + bytes, nullptr) != 0) {
        return complain("has no memory for a message");
    }
    message.Fill(reinterpret_cast<const char*>(&letter), sizeof letter);
    traffic::fill(*letterIn(message));
    traffic::seal(*letterIn(message), kind);
}

bool Member::notify(uint32_t to, Kind kind, uint32_t question, uint32_t hops) {
    IpcMessage message;
    compose(message, to, kind, question, hops);
    const int result = endpoint_.Notify(nameOfMember(to), message, true);
    if (result == 0) {
        life_.to[to].sent[kind] = life_.to[to].begun[kind].load();
        return true;
    }
    known_[to] = 0;  // until its successor writes
    ++ledger_.refused;
    if (isServer(to) || result != -1) {
        complain("cannot send to " + nameOfMember(to) + ": " + std::to_string(result));
    }
    return false;
}

/// A signal of a few bytes or none, whose number says which it is.
void Member::sendBare(uint32_t to) {
    traffic::Outgoing& outgoing = life_.to[to];
    const uint32_t sequence = ++outgoing.begun[traffic::bare];
    std::string bytes(draw(4), static_cast<char>(sequence % bares));
    IpcMessage message;
    message.Allocate(firstBare + sequence % bares, static_cast<uint32_t>(bytes.size()), bytes.data());
    const int result = endpoint_.Notify(nameOfMember(to), message, true);
    if (result != 0) return complain("cannot send to " + nameOfMember(to) + ": " + std::to_string(result));
    outgoing.sent[traffic::bare] = sequence;
}

/// Asks, and takes nothing else until the answer has come.
void Member::ask(uint32_t to) {
    IpcMessage message, answer;
    const uint32_t sequence = composeQuestion(message, to);
    int result = endpoint_.Request(nameOfMember(to), message, replyNumber, limit, &answer);
    while (result == 0) {
        handleLetter(answer, traffic::reply);
        if (question_ == 0) break;
        result = endpoint_.Receive(limit, replyNumber, nameOfMember(to), &answer);
    }
    noteAnswer(to, sequence, result);
}

/// Asks, and goes on serving until the answer has come.
void Member::askMeanwhile(uint32_t to) {
    IpcMessage message;
    const uint32_t sequence = composeQuestion(message, to);
    const int result = endpoint_.AsyncRequest(nameOfMember(to), message, replyNumber, limit, nullptr);
    // A relayed signal that comes first looks like the answer if the message before was one.
    while (result == 0 && question_ != 0 && take(limit)) {
    }
    noteAnswer(to, sequence, result);
}

uint32_t Member::composeQuestion(IpcMessage& message, uint32_t to) {
    question_ = (number_ << questionBits) + ++lastQuestion_ % (1u << questionBits);
    compose(message, to, traffic::request, question_, 0);
    return life_.to[to].begun[traffic::request];
}

void Member::noteAnswer(uint32_t to, uint32_t sequence, int result) {
    if (result != 0) return complain("has no answer of " + nameOfMember(to) + ": " + std::to_string(result));
    if (question_ != 0) return complain("waits in vain for " + nameOfMember(to));
    life_.to[to].sent[traffic::request] = sequence;
}

void Member::burst(uint32_t to) {
    for (uint32_t left = 1 + draw(8); left != 0; --left) {
        switch (draw(4)) {
            case 0:
                notify(to, traffic::relay, 0, draw(3));
                break;
            case 1:
                sendBare(to);
                break;
            default:
                notify(to, traffic::item);
        }
    }
}

void Member::useTimers() {
    if (endpoint_.EnableTimer(static_cast<int>(draw(20)), timeoutNumber) != 0) return complain("cannot set a timer");
    ++pendingTimers_;
    if (draw(2) == 0 && endpoint_.DisableTimer() == 0) --pendingTimers_;
}

void Member::supervise(const std::string& name, uint32_t life) {
    const int result = endpoint_.Attach(name.c_str(), firstNotice + life);
    if (result != 0) complain("cannot attach to " + name + ": " + std::to_string(result));
}

void Member::greet(uint32_t server) {
    ask(server);
    supervise(nameOfMember(server), ledger_.latest[server]);
}

void Member::visit() {
    for (uint32_t server = 0; server < servers; ++server) {
        notify(server, traffic::item);
        // Its own server waits meanwhile. Who waits for an answer waits for one above: never two for each other.
        if (visitorOf(server) > seat_ && draw(2) == 0) ask(server);
        burst(server);
    }
    supervise(nameOfMember(0), ledger_.latest[0]);
    endpoint_.EnableTimer(60000, timeoutNumber);
    linx_hunt(endpoint_.Linx(), "nobody", nullptr);
    IpcMessage toMyself;
    toMyself.Allocate(firstBare, 5, nullptr);
    std::memset(toMyself.DataPtr(), 0, toMyself.Length());
    if (endpoint_.Notify(nameOfMember(seat_), toMyself, true) != 0) complain("cannot write to itself");
}

/// Receives for the time of a turn, in one of the ways that there are.
void Member::attend() {
    const traffic::Clock::time_point end = traffic::Clock::now() + turnTime;
    bool some = false;
    do {
        ++ledger_.beats[seat_];
        if (draw(8) == 0) {
            pollfd readable = {endpoint_.Descriptor(), POLLIN, 0};
            poll(&readable, 1, millisecondsUntil(end));
            some = take(0) || some;
        } else if (draw(8) == 0) {
            Watchdog watchdog;
            const int result = endpoint_.Receive(watchdog, 0);
            if (result != 0) complain("cannot receive: " + std::to_string(result));
        } else {
            some = take(millisecondsUntil(end)) || some;
        }
    } while (traffic::Clock::now() < end);
    if (ledger_.finish && !some) ledger_.settled[seat_] = isSettled();
}

/// Receives and dispatches one signal. False when the time runs out.
bool Member::take(int milliseconds) {
    const int result = endpoint_.Receive(milliseconds, 0, LinxIpc::emptyString, nullptr);
    if (result == ETIMEDOUT) return false;
    ledger_.settled[seat_] = false;
    if (result != 0) complain("cannot receive: " + std::to_string(result));
    return true;
}

void Member::onLetter(LinxIpc* endpoint, void* self) {
    IpcMessage& message = endpoint->rxMessage;
    static_cast<Member*>(self)->handleLetter(message, static_cast<Kind>(message.MsgType() - firstNumber));
}

void Member::onRelay(LinxIpc* endpoint, void* self) {
    static_cast<Member*>(self)->handleRelay(endpoint->relayMessage);
}

void Member::onOther(LinxIpc* endpoint, void* self) {
    Member& member = *static_cast<Member*>(self);
    IpcMessage& message = endpoint->rxMessage;
    const uint32_t number = message.MsgType();
    if (number - firstBare < bares) return member.handleBare(message);
    if (number - firstNotice < notices) return member.handleNotice(number - firstNotice);
    if (number == timeoutNumber) return member.handleTimeout(message);
    member.complain("receives the number " + std::to_string(number));
}

/// Whether the letter is whole; then it is counted.
bool Member::check(IpcMessage& message, Kind kind) {
    const uint32_t size = static_cast<uint32_t>(sizeof(LinxSignal)) + message.Length();
    if (message.Length() < sizeof(Letter) || !traffic::isWhole(*letterIn(message), kind, size)) {
        complain("receives a signal that has changed on its way");
        return false;
    }
    const Letter& letter = *letterIn(message);
    const uint32_t seat = ledger_.life(letter.from).seat;
    if (letter.to != seat_) complain("receives what was sent to " + nameOfMember(letter.to));
    if (message.GetSender() != nameOfMember(seat)) {
        complain("is told that " + message.GetSender() + " sent what " + nameOfMember(seat) + " did");
    }
    count(letter.from, seat, kind, letter.sequence, ~0u);
    bytes_.add(size);
    return true;
}

/// Counts a signal of the life, whose sequence number is known up to the modulus.
void Member::count(uint32_t life, uint32_t seat, Kind kind, uint32_t sequence, uint32_t modulus) {
    uint32_t& received = meet(life, seat).received[kind];
    const bool mayBegin = received == 0 && !isServer(seat_);
    const uint32_t expected = mayBegin ? sequence : received + 1;
    if (sequence != expected % modulus) {
        complain("receives number " + std::to_string(sequence) + " of life " + std::to_string(life) + " instead of " +
                 std::to_string(expected) + ", kind " + std::to_string(kind));
        ++ledger_.losses;
    }
    received = modulus == ~0u ? sequence : expected;
    heard_[seat] = life;
    ++ledger_.verified;
}

/// The peer with this life. Servers supervise whom they meet, and greet who comes and goes.
Member::Peer& Member::meet(uint32_t life, uint32_t seat) {
    const auto [known, isNew] = peers_.try_emplace(life);
    Peer& peer = known->second;
    if (!isNew || !isServer(seat_)) return peer;
    ++met_;
    peer.attaches = 1 + life % 2;
    for (uint32_t i = 0; i < peer.attaches; ++i) supervise(nameOfMember(seat), life);
    if (isClient(seat)) {
        known_[seat] = life;
        notify(seat, traffic::item);
    }
    return peer;
}

void Member::handleLetter(IpcMessage& message, Kind kind) {
    if (!check(message, kind)) return;
    const Letter& letter = *letterIn(message);
    if (kind == traffic::request) notify(ledger_.life(letter.from).seat, traffic::reply, letter.question);
    if (kind == traffic::reply) handleReply(letter);
}

/// An answer to a predecessor that has ended may come to its name.
void Member::handleReply(const Letter& letter) {
    const bool isMine = (letter.question ^ question_) >> questionBits == 0;
    if (question_ == letter.question) {
        question_ = 0;
    } else if (isMine || isServer(seat_)) {
        complain("is answered what it did not ask");
    }
}

void Member::handleRelay(RelayMessage& message) {
    if (!check(message, traffic::relay)) return;
    Letter& letter = *letterIn(message);
    if (letter.hops == 0 || ledger_.leave) return;
    const uint32_t to = drawOtherServer();
    --letter.hops;
    letter.from = number_;
    letter.to = to;
    letter.sequence = ++life_.to[to].begun[traffic::relay];
    traffic::seal(letter, traffic::relay);
    if (endpoint_.Relay(message, nameOfMember(to)) != 0) return complain("cannot relay to " + nameOfMember(to));
    life_.to[to].sent[traffic::relay] = life_.to[to].begun[traffic::relay].load();
    ++ledger_.relayed;
}

void Member::handleBare(IpcMessage& message) {
    const uint32_t sequence = message.MsgType() - firstBare;
    for (uint32_t i = 0; i < message.Length(); ++i) {
        if (static_cast<unsigned char>(message.DataPtr()[i]) != sequence) complain("receives changed bytes");
    }
    for (uint32_t seat = 0; seat < visitorOf(servers); ++seat) {
        if (message.GetSender() != nameOfMember(seat)) continue;
        return count(heard_[seat], seat, traffic::bare, sequence, bares);
    }
    complain("receives something of " + message.GetSender());
}

void Member::handleNotice(uint32_t life) {
    const auto told = peers_.find(life);
    if (told == peers_.end()) return complain("is told of an end twice, or without having asked");
    Peer& peer = told->second;
    ++ledger_.notices;
    ++peer.notices;
    if (ledger_.isLiving(life)) complain("is told of the end of life " + std::to_string(life) + ", which lives");
    if (peer.notices == 1) compareWithSent(life, peer);
    uint32_t& known = known_[ledger_.life(life).seat];
    if (known == life) known = 0;
    if (peer.notices == peer.attaches) peers_.erase(told);
}

void Member::handleTimeout(IpcMessage& message) {
    if (message.GetSender() != nameOfMember(seat_)) complain("gets a time-out of " + message.GetSender());
    if (pendingTimers_ == 0) return complain("gets a time-out twice, or one that was cancelled");
    --pendingTimers_;
    ++ledger_.timeouts;
}

/// All that the life has sent must have come: it has ended, or sends no more.
void Member::compareWithSent(uint32_t life, const Peer& peer) {
    const traffic::Outgoing& outgoing = ledger_.life(life).to[seat_];
    for (uint32_t kind = 0; kind < traffic::kinds; ++kind) {
        const uint32_t begun = outgoing.begun[kind];
        const uint32_t received = peer.received[kind];
        // To who comes and goes something may have been sent in vain before he came, but he has been greeted since.
        const bool isGreeted = received != 0 || kind == traffic::item;
        const uint32_t sent = isServer(seat_) ? outgoing.sent[kind].load() : isGreeted ? begun : 0;
        if (begun > sent && peer.notices != 0) ++ledger_.interrupted;
        if (received >= sent && received <= begun) continue;
        ledger_.losses += received < sent ? sent - received : 0;
        complain("has " + std::to_string(received) + " signals of life " + std::to_string(life) + ", which sent " +
                 std::to_string(sent) + ", kind " + std::to_string(kind));
    }
}

bool Member::isSettled() const {
    if (question_ != 0 || pendingTimers_ != 0) return false;
    return std::all_of(peers_.begin(), peers_.end(),
                       [this](const auto& entry) { return ledger_.isLiving(entry.first); });
}

void Member::drawBalance() {
    ++ledger_.standing;
    if (!ledger_.standing.reaches(members)) return complain("does not see all others stand still");
    while (take(0)) {
    }
    for (uint32_t seat = 0; seat < members; ++seat) {
        if (seat == seat_ || (isClient(seat) && isClient(seat_))) continue;
        const uint32_t life = ledger_.latest[seat];
        const auto peer = peers_.find(life);
        if (peer != peers_.end()) {
            compareWithSent(life, peer->second);
        } else {
            complain("has never heard of " + nameOfMember(seat));
        }
    }
    ++ledger_.checked;
    if (!ledger_.checked.reaches(members)) complain("does not see all others draw the balance");
}

}  // namespace soak
