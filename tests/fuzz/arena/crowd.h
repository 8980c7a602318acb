#ifndef LINXIPC_TESTS_FUZZ_ARENA_CROWD_H
#define LINXIPC_TESTS_FUZZ_ARENA_CROWD_H

#include <array>
#include <initializer_list>
#include <vector>

#include "platform/linx.h"
#include "tests/fuzz/input.h"

namespace fuzz {

/// Endpoints that go on with their work in an arena that is being garbled. Nothing is known of what they get; every
/// operation ends, with a result or with an error that is among those it may have.
class Crowd {
public:
    explicit Crowd(Input& input) : input_(input) {}
    ~Crowd();
    Crowd(const Crowd&) = delete;
    Crowd& operator=(const Crowd&) = delete;

    /// Opens endpoints that talk to each other, hunt and wait.
    void settleIn();

    /// One operation of one endpoint.
    void act();

    void closeAll();

private:
    struct Seat {
        LINX* linx = nullptr;
        int descriptor = -1;
        std::vector<LinxSignal*> held;
        std::vector<LinxRef> timeouts;
    };

    void open(Seat& seat, const char* name);
    void close(Seat& seat);
    void allocate(Seat& seat, uint32_t size);
    void free(Seat& seat);
    void send(Seat& seat, LinxSpid to);
    void receive(Seat& seat, uint32_t milliseconds, const uint32_t* selection);
    void hunt(Seat& seat, const char* name);
    void attach(Seat& seat, LinxSpid whom);
    void requestTimeout(Seat& seat, uint32_t milliseconds);
    void cancelTimeout(Seat& seat);
    void nameOf(Seat& seat, LinxSpid spid);
    void poll(Seat& seat);

    LinxSignal* takeOutHeld(Seat& seat);
    LinxSpid chooseSpid();

    Input& input_;
    std::array<Seat, 4> seats_;
    std::vector<LinxSpid> spids_;
};

}  // namespace fuzz

#endif
