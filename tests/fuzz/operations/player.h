#ifndef LINXIPC_TESTS_FUZZ_OPERATIONS_PLAYER_H
#define LINXIPC_TESTS_FUZZ_OPERATIONS_PLAYER_H

#include "tests/fuzz/input.h"
#include "tests/fuzz/operations/world.h"

namespace fuzz {

/// Carries out the operations that an input tells, and compares every result with what the world says.
class Player {
public:
    explicit Player(Input& input) : input_(input) {}
    ~Player();
    Player(const Player&) = delete;
    Player& operator=(const Player&) = delete;

    /// One operation.
    void play();

private:
    /// A pointer to hand in, which may be a signal of the seat's endpoint or something else.
    struct Offer {
        LinxSignal* signal;
        bool isOwn;
        Letter letter;
    };

    void open(Seat& seat);
    void openWrongly();
    void close(Seat& seat);
    void allocate(Seat& seat);
    void allocateWrongly(Seat& seat);
    void rewrite(Seat& seat);
    void free(Seat& seat);
    void send(Seat& seat);
    void receive(Seat& seat);
    void sender(Seat& seat);
    void hunt(Seat& seat);
    void huntWrongly(Seat& seat);
    void attach(Seat& seat);
    void requestTimeout(Seat& seat);
    void cancelTimeout(Seat& seat);
    void nameOf(Seat& seat);
    void freeName(Seat& seat);
    void poll(Seat& seat);
    void abuse();

    Offer offer(Seat& seat);
    Offer offerOwn(Seat& seat);
    /// The operation took the signal, if it was the seat's own, and left it alone otherwise.
    void expectTaken(Seat& seat, const Offer& before, const LinxSignal* after);
    void take(Seat& seat, LinxSignal* signal, int size, const Selection& selection);
    void expectReceived(Seat& seat, LinxSignal* signal, int size, const Selection& selection);
    bool mayLackMemory(uint32_t size) const;
    LinxSpid chooseSpid();
    std::string chooseName();
    Selection chooseSelection();
    uint32_t chooseNumber();

    Input& input_;
    World world_;
    uint32_t seeds_ = 0;
    std::vector<LINX*> closed_;
    std::vector<LinxSpid> spids_;
    std::vector<LinxSignal*> stale_;
    std::vector<LinxRef> references_;
};

}  // namespace fuzz

#endif
