#include "tests/fuzz/operations/player.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>

#include "tests/fuzz/claim.h"
#include "tests/kit/readable.h"

namespace fuzz {
namespace {

constexpr uint32_t largest = 1u << 20;
constexpr uint32_t hour = 3600000;
constexpr int patience = 10000;  ///< milliseconds

/// In all signals together, with which no operation may find that there is no memory.
constexpr uint32_t modestBytes = 256u << 10;

void expectError(int expected, const char* operation) {
    claim(errno == expected,
          std::string(operation) + " fails with " + std::strerror(expected) + ", not: " + std::strerror(errno));
}

}  // namespace

Player::~Player() {
    for (Seat& seat : world_.seats) {
        if (seat.isOpen()) close(seat);
    }
}

void Player::play() {
    using Operation = void (Player::*)(Seat&);
    constexpr Operation operations[] = {&Player::allocate,      &Player::send,        &Player::receive,
                                        &Player::send,          &Player::receive,     &Player::free,
                                        &Player::hunt,          &Player::attach,      &Player::requestTimeout,
                                        &Player::cancelTimeout, &Player::poll,        &Player::sender,
                                        &Player::rewrite,       &Player::close,       &Player::nameOf,
                                        &Player::freeName,      &Player::huntWrongly, &Player::allocateWrongly};
    constexpr uint32_t count = sizeof operations / sizeof *operations;
    const uint32_t choice = input_.below(seatCount * (count + 1));
    Seat& seat = world_.seats[choice % seatCount];
    const uint32_t operation = choice / seatCount;
    errno = 0;
    if (operation == count) {
        choice % 2 == 0 ? abuse() : openWrongly();
    } else if (!seat.isOpen()) {
        open(seat);
    } else {
        (this->*operations[operation])(seat);
    }
}

bool Player::mayLackMemory(uint32_t size) const {
    return world_.bytes() + size > modestBytes;
}

std::string Player::chooseName() {
    static const std::string names[] = {"a", "b", "to/c", std::string(255, 'd'), "\xff\x01"};
    return names[input_.below(5)];
}

uint32_t Player::chooseNumber() {
    constexpr uint32_t numbers[] = {1, 2, 3, 0, LINX_OS_HUNT_SIG, LINX_OS_TIMEOUT_SIG, ~0u};
    return numbers[input_.below(7)];
}

Selection Player::chooseSelection() {
    Selection selection = {input_.below(8)};
    if (selection[0] > 4) selection[0] = 0;
    for (uint32_t left = selection[0]; left != 0; --left) selection.push_back(chooseNumber());
    return selection;
}

/// One that there is or was, or something like it.
LinxSpid Player::chooseSpid() {
    const uint32_t choice = input_.byte();
    if (spids_.empty()) return choice;
    const LinxSpid known = spids_[choice % spids_.size()];
    constexpr LinxSpid notThere[] = {0x2001f40, 0, ~0u, 8191};
    switch (choice / 32) {
        case 4:
            return known | 1u << 30;
        case 5:
            return known | 1u << 31;
        case 6:
            return known + (1u << 13);  // the slot's next
        case 7:
            return notThere[choice % 4];
        default:
            return known;
    }
}

void Player::open(Seat& seat) {
    const std::string name = chooseName();
    LINX* linx = linx_open(name.c_str(), 0, nullptr);
    if (world_.findOpen(name) != nullptr) {
        claim(linx == nullptr, "no name has two endpoints");
        return expectError(EADDRINUSE, "linx_open");
    }
    claim(linx != nullptr, std::string("an endpoint opens: ") + std::strerror(errno));
    LinxSignal* fresh = linx_alloc(linx, sizeof(LinxSignal), 0);
    if (fresh == nullptr) {
        claim(mayLackMemory(sizeof(LinxSignal)), "a fresh endpoint has memory");
        linx_close(linx);
        return;
    }
    const LinxSpid spid = linx_sender(linx, &fresh);
    claim(linx_free_buf(linx, &fresh) == 0, "a fresh signal is freed");
    world_.open(seat, linx, spid, name);
    spids_.push_back(spid);
}

void Player::openWrongly() {
    static const std::string tooLong(256, 'd');
    int argument = 0;
    switch (input_.below(5)) {
        case 0:
            claim(linx_open(nullptr, 0, nullptr) == nullptr, "no endpoint is without a name");
            return expectError(EINVAL, "linx_open");
        case 1:
            claim(linx_open("", 0, nullptr) == nullptr, "no name is empty");
            return expectError(EINVAL, "linx_open");
        case 2:
            claim(linx_open(tooLong.c_str(), 0, nullptr) == nullptr, "no name is too long");
            return expectError(ENAMETOOLONG, "linx_open");
        case 3:
            claim(linx_open("a", ~LINX_OPEN_LINK, nullptr) == nullptr, "there are no other options");
            return expectError(EINVAL, "linx_open");
        default:
            claim(linx_open("a", 0, &argument) == nullptr, "there is no argument");
            return expectError(EINVAL, "linx_open");
    }
}

void Player::close(Seat& seat) {
    const int descriptor = seat.descriptor;
    claim(linx_close(seat.linx) == 0, "an endpoint closes");
    claim(linx_close(seat.linx) == -1, "an endpoint closes once");
    expectError(EINVAL, "linx_close");
    if (descriptor != -1) claim(::close(descriptor) == 0, "the descriptor is left to whoever asked for it");
    closed_.push_back(seat.linx);
    for (const auto& [signal, letter] : seat.held) stale_.push_back(signal);
    world_.close(seat);
}

void Player::allocate(Seat& seat) {
    constexpr uint32_t sizes[] = {4, 5, 24, 36, 37, 100, 300, 1000, 4000, 20000, 65536, largest / 2, largest};
    const uint32_t choice = input_.byte();
    const uint32_t size = choice < 240 ? sizes[choice / 4 % 13] + choice % 4 : 4 + input_.half();
    const Letter letter = {chooseNumber(), std::min(size, largest), seat.spid, ++seeds_};
    LinxSignal* signal = linx_alloc(seat.linx, letter.size, letter.number);
    if (signal == nullptr) {
        claim(mayLackMemory(letter.size), "there is memory for " + std::to_string(letter.size) + " bytes beside " +
                                              std::to_string(world_.bytes()));
        return expectError(ENOMEM, "linx_alloc");
    }
    claim(signal->number == letter.number, "a fresh signal has its number");
    claim(reinterpret_cast<uintptr_t>(signal + 1) % 16 == 0, "payloads are aligned");
    for (const Seat& other : world_.seats) claim(other.held.count(signal) == 0, "no signal is given out twice");
    fill(signal, letter);
    seat.held[signal] = letter;
}

void Player::allocateWrongly(Seat& seat) {
    constexpr uint32_t sizes[] = {0, 3, largest + 1, ~0u};
    const uint32_t size = sizes[input_.below(4)];
    claim(linx_alloc(seat.linx, size, 1) == nullptr, "sizes have bounds");
    expectError(size < largest ? EINVAL : EMSGSIZE, "linx_alloc");
}

Player::Offer Player::offerOwn(Seat& seat) {
    const auto own = std::next(seat.held.begin(), input_.below(static_cast<uint32_t>(seat.held.size())));
    return {own->first, true, own->second};
}

Player::Offer Player::offer(Seat& seat) {
    const uint32_t choice = input_.byte();
    if (choice < 200 && seat.held.empty()) allocate(seat);
    if (choice < 200 && !seat.held.empty()) return offerOwn(seat);
    static LinxSignal outside[16];
    LinxSignal* signal = nullptr;
    if (choice % 5 == 1) signal = outside + choice % 16;
    if (choice % 5 == 2 && !seat.held.empty()) signal = offerOwn(seat).signal + choice % 32;
    Seat& other = world_.seats[choice % seatCount];
    if (choice % 5 == 3 && !other.held.empty()) signal = offerOwn(other).signal;
    if (choice % 5 == 4 && !stale_.empty()) signal = stale_[choice % stale_.size()];
    const auto own = seat.held.find(signal);
    if (own == seat.held.end()) return {signal, false, {}};
    return {signal, true, own->second};
}

void Player::expectTaken(Seat& seat, const Offer& before, const LinxSignal* after) {
    if (!before.isOwn) return claim(after == before.signal, "what is no signal of one's own is left alone");
    claim(after == nullptr, "a signal of one's own is taken");
    seat.held.erase(before.signal);
    stale_.push_back(before.signal);
}

void Player::rewrite(Seat& seat) {
    if (seat.held.empty()) return;
    const Offer own = offerOwn(seat);
    Letter& letter = seat.held[own.signal];
    claim(isWritten(own.signal, letter), "nobody else writes into a signal");
    letter.number = chooseNumber();
    letter.seed = ++seeds_;
    fill(own.signal, letter);
}

void Player::free(Seat& seat) {
    const Offer own = offer(seat);
    LinxSignal* signal = own.signal;
    const int result = linx_free_buf(seat.linx, &signal);
    claim(result == (own.isOwn ? 0 : -1), "signals of one's own are freed, and no others");
    if (!own.isOwn) expectError(EINVAL, "linx_free_buf");
    expectTaken(seat, own, signal);
}

void Player::send(Seat& seat) {
    const LinxSpid to = chooseSpid();
    const Offer own = offer(seat);
    LinxSignal* signal = own.signal;
    const int result = linx_send(seat.linx, &signal, to);
    expectTaken(seat, own, signal);
    Seat* target = world_.findOpen(to);
    claim(result == (own.isOwn && target != nullptr ? 0 : -1), "signals of one's own go to live endpoints");
    if (!own.isOwn) return expectError(EINVAL, "linx_send");
    if (target == nullptr) return expectError(world_.existed(to) ? ECONNRESET : ESRCH, "linx_send");
    Letter letter = own.letter;
    letter.sender = seat.spid;
    target->inbox.arrive(letter);
}

void Player::receive(Seat& seat) {
    const Selection selection = chooseSelection();
    World::fireTimeouts(seat);
    LinxSignal* signal = reinterpret_cast<LinxSignal*>(this);
    const bool waits = input_.below(4) == 0 && seat.inbox.holds(selection);
    const int size = waits ? linx_receive(seat.linx, &signal, selection.data())
                           : linx_receive_w_tmo(seat.linx, &signal, 0, selection.data());
    expectReceived(seat, signal, size, selection);
}

void Player::expectReceived(Seat& seat, LinxSignal* signal, int size, const Selection& selection) {
    claim(size >= 0, std::string("a receive succeeds: ") + std::strerror(errno));
    if (size > 0) return take(seat, signal, size, selection);
    claim(signal == nullptr, "where nothing was received there is no signal");
    claim(!seat.inbox.holds(selection), "what waits is received");
    seat.inbox.notice();
}

void Player::take(Seat& seat, LinxSignal* signal, int size, const Selection& selection) {
    Letter letter;
    const LinxSpid sender = linx_sender(seat.linx, &signal);
    claim(seat.inbox.take(signal, static_cast<uint32_t>(size), sender, selection, letter),
          "what is received is what was sent, in its order");
    for (const Seat& other : world_.seats) claim(other.held.count(signal) == 0, "no signal is received twice");
    seat.held[signal] = letter;
}

void Player::sender(Seat& seat) {
    const Offer own = offer(seat);
    LinxSignal* signal = own.signal;
    const LinxSpid sender = linx_sender(seat.linx, &signal);
    claim(signal == own.signal, "asking for the sender takes nothing");
    claim(sender == own.letter.sender, "a signal has its sender");
    if (!own.isOwn) expectError(EINVAL, "linx_sender");
}

void Player::hunt(Seat& seat) {
    const std::string name = chooseName();
    const Offer own = offer(seat);
    const bool byDefault = own.signal == nullptr;
    LinxSignal* signal = own.signal;
    LinxSignal** address = byDefault && input_.below(2) == 0 ? nullptr : &signal;
    const int result = linx_hunt(seat.linx, name.c_str(), address);
    if (byDefault && result == -1) {
        claim(mayLackMemory(sizeof(LinxSignal)), "there is memory for a hunt");
        return expectError(ENOMEM, "linx_hunt");
    }
    claim(result == (byDefault || own.isOwn ? 0 : -1), "a hunt takes a signal of one's own, or none");
    if (result == -1) expectError(EINVAL, "linx_hunt");
    if (!byDefault) expectTaken(seat, own, signal);
    if (result == -1) return;
    Letter letter = byDefault ? Letter{LINX_OS_HUNT_SIG, sizeof(LinxSignal), 0, 0} : own.letter;
    const Seat* found = world_.findOpen(name);
    if (found == nullptr) return world_.hunt(seat, name, letter);
    letter.sender = found->spid;
    seat.inbox.arrive(letter);
}

void Player::huntWrongly(Seat& seat) {
    static const std::string tooLong(256, 'd');
    const char* const names[] = {nullptr, "", tooLong.c_str()};
    const uint32_t choice = input_.below(3);
    const Offer own = offer(seat);
    LinxSignal* signal = own.signal;
    claim(linx_hunt(seat.linx, names[choice], &signal) == -1, "what is no name is not hunted");
    expectError(choice == 2 ? ENAMETOOLONG : EINVAL, "linx_hunt");
    expectTaken(seat, own, signal);
}

void Player::attach(Seat& seat) {
    const LinxSpid whom = chooseSpid();
    const Offer own = offer(seat);
    LinxSignal* signal = own.signal;
    const LinxRef reference = linx_attach(seat.linx, &signal, whom);
    expectTaken(seat, own, signal);
    const bool existed = world_.existed(whom);
    claim((reference != 0) == (own.isOwn && existed), "whoever existed is supervised, with a signal of one's own");
    if (reference == 0) return expectError(own.isOwn ? ESRCH : EINVAL, "linx_attach");
    references_.push_back(reference);
    world_.attach(seat, whom, own.letter);
}

void Player::requestTimeout(Seat& seat) {
    const bool isDistant = input_.below(3) == 0;
    const Offer own = offer(seat);
    const bool byDefault = own.signal == nullptr;
    LinxSignal* signal = own.signal;
    LinxSignal** address = byDefault && input_.below(2) == 0 ? nullptr : &signal;
    const LinxRef reference = linx_request_tmo(seat.linx, isDistant ? hour : 0, address);
    if (byDefault && reference == 0) {
        claim(mayLackMemory(sizeof(LinxSignal)), "there is memory for a time-out");
        return expectError(ENOMEM, "linx_request_tmo");
    }
    claim((reference != 0) == (byDefault || own.isOwn), "a time-out takes a signal of one's own, or none");
    if (reference == 0) expectError(EINVAL, "linx_request_tmo");
    if (!byDefault) expectTaken(seat, own, signal);
    if (reference == 0) return;
    Letter letter = byDefault ? Letter{LINX_OS_TIMEOUT_SIG, sizeof(LinxSignal), 0, 0} : own.letter;
    letter.sender = seat.spid;
    references_.push_back(reference);
    (isDistant ? seat.distant : seat.due).push_back({reference, letter});
}

void Player::cancelTimeout(Seat& seat) {
    const uint32_t choice = input_.byte();
    LinxRef reference =
        choice % 16 == 0 || references_.empty() ? choice / 16 : references_[choice % references_.size()];
    const LinxRef before = reference;
    const bool isKnown = World::cancel(seat, before);
    const int result = linx_cancel_tmo(seat.linx, &reference);
    claim(result == (isKnown ? 0 : -1), "a time-out is taken back until it is received");
    claim(reference == (isKnown ? 0 : before), "the reference of a time-out that was taken back is no more");
    if (!isKnown) expectError(EINVAL, "linx_cancel_tmo");
}

void Player::nameOf(Seat& seat) {
    const LinxSpid spid = chooseSpid();
    char* name = nullptr;
    const int result = linx_get_name(seat.linx, spid, &name);
    const std::string* expected = world_.nameOf(spid);
    claim(result == (expected == nullptr ? -1 : 0), "whoever existed has a name until his slot is used again");
    if (expected == nullptr) return expectError(ESRCH, "linx_get_name");
    claim(*expected == name, "a name is told as it was given");
    claim(seat.names.insert(name).second, "no name is given out twice");
}

void Player::freeName(Seat& seat) {
    Seat& other = world_.seats[input_.below(seatCount)];
    char somewhere[] = "a";
    char* name = other.names.empty() ? somewhere : *other.names.begin();
    char* const before = name;
    const bool isOwn = seat.names.erase(name) != 0;
    const int result = linx_free_name(seat.linx, &name);
    claim(result == (isOwn ? 0 : -1), "names of one's own are taken back");
    claim(name == (isOwn ? nullptr : before), "what is no name of one's own is left alone");
    if (!isOwn) expectError(EINVAL, "linx_free_name");
}

void Player::poll(Seat& seat) {
    const int descriptor = linx_get_descriptor(seat.linx);
    claim(descriptor != -1, "an endpoint has a descriptor");
    claim(seat.descriptor == -1 || seat.descriptor == descriptor, "an endpoint has one descriptor");
    seat.descriptor = descriptor;
    if (!seat.inbox.empty() || !seat.due.empty()) {
        return claim(isReadable(descriptor, patience), "a descriptor is readable while signals wait");
    }
    if (!isReadable(descriptor, 0)) return;
    // A late byte, or the end of a peer that is not supervised: once.
    LinxSignal* signal = nullptr;
    const Selection any = {0};
    claim(linx_receive_w_tmo(seat.linx, &signal, 0, any.data()) == 0, "nothing waits that nobody sent");
    claim(!isReadable(descriptor, 0), "a receive clears a descriptor behind which nothing waits");
}

/// Handles that are none.
void Player::abuse() {
    const uint32_t choice = input_.byte();
    LINX* none = nullptr;
    if (choice % 3 == 1 && !closed_.empty()) none = closed_[choice / 3 % closed_.size()];
    const Seat& seat = world_.seats[choice % seatCount];
    if (choice % 3 == 2 && seat.isOpen()) none = reinterpret_cast<LINX*>(reinterpret_cast<char*>(seat.linx) + 1);
    LinxSignal* signal = seat.held.empty() ? nullptr : seat.held.begin()->first;
    LinxSignal* const before = signal;
    const uint32_t any[] = {0};
    char somewhere[] = "a";
    char* name = somewhere;
    LinxRef reference = 1;
    const auto refused = [&](bool failed, const char* operation) {
        claim(failed && signal == before && name == somewhere && reference == 1,
              std::string(operation) + " leaves all alone without a handle");
        expectError(EINVAL, operation);
        errno = 0;
    };
    refused(linx_get_descriptor(none) == -1, "linx_get_descriptor");
    refused(linx_close(none) == -1, "linx_close");
    refused(linx_hunt(none, "a", &signal) == -1, "linx_hunt");
    refused(linx_attach(none, &signal, 1) == 0, "linx_attach");
    refused(linx_alloc(none, 4, 1) == nullptr, "linx_alloc");
    refused(linx_free_buf(none, &signal) == -1, "linx_free_buf");
    refused(linx_send(none, &signal, 1) == -1, "linx_send");
    refused(linx_receive(none, &signal, any) == -1, "linx_receive");
    refused(linx_receive_w_tmo(none, &signal, 0, any) == -1, "linx_receive_w_tmo");
    refused(linx_sender(none, &signal) == 0, "linx_sender");
    refused(linx_get_name(none, 1, &name) == -1, "linx_get_name");
    refused(linx_free_name(none, &name) == -1, "linx_free_name");
    refused(linx_request_tmo(none, 0, &signal) == 0, "linx_request_tmo");
    refused(linx_cancel_tmo(none, &reference) == -1, "linx_cancel_tmo");
}

}  // namespace fuzz
