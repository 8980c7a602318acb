#include "tests/fuzz/arena/crowd.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>

#include "tests/ambush/ambush.h"
#include "tests/fuzz/claim.h"
#include "tests/kit/read_all.h"

namespace fuzz {
namespace {

constexpr uint32_t largest = 1u << 20;
constexpr uint32_t hour = 3600000;
constexpr uint32_t any[] = {0};
constexpr const char* names[] = {"a", "b", "c", "d"};

/// What every operation may fail with in a garbled arena: what it was given is no handle or signal any more, its
/// endpoint counts as ended, or its domain is no longer there.
bool isCommon(int error) {
    return error == EINVAL || error == ENOMEM || error == ECONNABORTED || error == ESTALE;
}

void expectDocumented(const char* operation, std::initializer_list<int> documented) {
    const bool is = isCommon(errno) || std::find(documented.begin(), documented.end(), errno) != documented.end();
    claim(is, std::string(operation) + " fails with one of its errors, not: " + std::strerror(errno));
}

/// An operation begins.
void begin() {
    ambush::begin();
    errno = 0;
}

}  // namespace

Crowd::~Crowd() {
    closeAll();
}

void Crowd::closeAll() {
    for (Seat& seat : seats_) {
        if (seat.linx != nullptr) close(seat);
    }
}

void Crowd::settleIn() {
    for (size_t i = 0; i < 3; ++i) open(seats_[i], names[i]);
    for (size_t i = 0; i < 3 && spids_.size() == 3; ++i) {
        Seat& seat = seats_[i];
        hunt(seat, names[(i + 1) % 3]);
        hunt(seat, "d");
        for (const uint32_t size : {4u, 100u, 5000u, 100u}) allocate(seat, size);
        send(seat, spids_[(i + 1) % 3]);
        send(seat, spids_[(i + 2) % 3]);
        attach(seat, spids_[(i + 2) % 3]);
        requestTimeout(seat, hour);
    }
    receive(seats_[0], 0, any);
    free(seats_[0]);  // on its way home to another
}

void Crowd::act() {
    const uint32_t choice = input_.byte();
    Seat& seat = seats_[choice % 4];
    if (seat.linx == nullptr) return open(seat, names[input_.below(4)]);
    switch (choice / 4 % 16) {
        case 0:
            return close(seat);
        case 1: {
            constexpr uint32_t sizes[] = {4, 36, 100, 300, 5000, 70000, largest, 0, largest + 1};
            return allocate(seat, sizes[input_.below(9)]);
        }
        case 2:
            return free(seat);
        case 3:
            return hunt(seat, names[input_.below(4)]);
        case 4:
            return attach(seat, chooseSpid());
        case 5:
            return requestTimeout(seat, input_.below(2) * hour);
        case 6:
            return cancelTimeout(seat);
        case 7:
            return nameOf(seat, chooseSpid());
        case 8:
            return poll(seat);
        case 9: {
            const uint32_t selection[] = {2, 100, input_.below(4)};
            return receive(seat, 0, selection);
        }
        case 10:
            return receive(seat, input_.byte() < 8 ? 1 : 0, any);  // sleeping takes time
        case 11:
        case 12:
            return receive(seat, 0, any);
        default:
            allocate(seat, 4 + input_.byte());
            return send(seat, chooseSpid());
    }
}

void Crowd::open(Seat& seat, const char* name) {
    begin();
    seat.linx = linx_open(name, 0, nullptr);
    if (seat.linx == nullptr) return expectDocumented("linx_open", {EADDRINUSE, EACCES, EPROTO, ENOSPC});
    LinxSignal* fresh = linx_alloc(seat.linx, sizeof(LinxSignal), 0);
    if (fresh == nullptr) return;
    spids_.push_back(linx_sender(seat.linx, &fresh));
    linx_free_buf(seat.linx, &fresh);
}

void Crowd::close(Seat& seat) {
    begin();
    claim(linx_close(seat.linx) == 0, "an endpoint closes");
    if (seat.descriptor != -1) claim(::close(seat.descriptor) == 0, "the descriptor is left to whoever asked for it");
    seat = Seat();
}

void Crowd::allocate(Seat& seat, uint32_t size) {
    begin();
    LinxSignal* signal = linx_alloc(seat.linx, size, 100);
    if (signal == nullptr) return expectDocumented("linx_alloc", {EMSGSIZE});
    std::memset(signal + 1, 0x5a, size - sizeof(LinxSignal));
    seat.held.push_back(signal);
}

LinxSignal* Crowd::takeOutHeld(Seat& seat) {
    if (seat.held.empty()) allocate(seat, sizeof(LinxSignal));
    if (seat.held.empty()) return nullptr;
    LinxSignal* signal = seat.held.back();
    seat.held.pop_back();
    return signal;
}

void Crowd::free(Seat& seat) {
    begin();
    LinxSignal* signal = takeOutHeld(seat);
    if (linx_free_buf(seat.linx, &signal) != 0) expectDocumented("linx_free_buf", {});
}

LinxSpid Crowd::chooseSpid() {
    const uint32_t choice = input_.byte();
    return choice < 240 && !spids_.empty() ? spids_[choice % spids_.size()] : choice << 13 | choice;
}

void Crowd::send(Seat& seat, LinxSpid to) {
    begin();
    LinxSignal* signal = takeOutHeld(seat);
    if (linx_send(seat.linx, &signal, to) != 0) expectDocumented("linx_send", {ECONNRESET, ESRCH});
}

void Crowd::receive(Seat& seat, uint32_t milliseconds, const uint32_t* selection) {
    begin();
    LinxSignal* signal = nullptr;
    const int size = linx_receive_w_tmo(seat.linx, &signal, milliseconds, selection);
    if (size == -1) return expectDocumented("linx_receive_w_tmo", {});
    claim((size == 0) == (signal == nullptr), "a signal comes with its size");
    if (signal == nullptr) return;
    claim(size >= static_cast<int>(sizeof(LinxSignal)), "a signal has a number");
    linxtest::readAll(signal, size);
    linx_sender(seat.linx, &signal);
    seat.held.push_back(signal);
}

void Crowd::hunt(Seat& seat, const char* name) {
    begin();
    if (linx_hunt(seat.linx, name, nullptr) != 0) expectDocumented("linx_hunt", {ENOSPC});
}

void Crowd::attach(Seat& seat, LinxSpid whom) {
    begin();
    LinxSignal* notice = takeOutHeld(seat);
    if (linx_attach(seat.linx, &notice, whom) == 0) expectDocumented("linx_attach", {ESRCH});
}

void Crowd::requestTimeout(Seat& seat, uint32_t milliseconds) {
    begin();
    const LinxRef reference = linx_request_tmo(seat.linx, milliseconds, nullptr);
    if (reference == 0) return expectDocumented("linx_request_tmo", {});
    seat.timeouts.push_back(reference);
}

void Crowd::cancelTimeout(Seat& seat) {
    begin();
    if (seat.timeouts.empty()) return;
    if (linx_cancel_tmo(seat.linx, &seat.timeouts.back()) != 0) expectDocumented("linx_cancel_tmo", {});
    seat.timeouts.pop_back();
}

void Crowd::nameOf(Seat& seat, LinxSpid spid) {
    begin();
    char* name = nullptr;
    if (linx_get_name(seat.linx, spid, &name) != 0) return expectDocumented("linx_get_name", {ESRCH});
    claim(std::strlen(name) <= 255, "no name is longer than names are");
    claim(linx_free_name(seat.linx, &name) == 0, "a name is handed back");
}

void Crowd::poll(Seat& seat) {
    begin();
    if (seat.descriptor == -1) seat.descriptor = linx_get_descriptor(seat.linx);
    pollfd readable = {seat.descriptor, POLLIN, 0};
    ::poll(&readable, 1, 0);
}

}  // namespace fuzz
