#ifndef LINXIPC_TESTS_FUZZ_OPERATIONS_INBOX_H
#define LINXIPC_TESTS_FUZZ_OPERATIONS_INBOX_H

#include <vector>

#include "tests/fuzz/operations/letter.h"

namespace fuzz {

using Selection = std::vector<uint32_t>;  ///< as the operations take it: a count, then that many numbers

/// What an endpoint is to receive, in a plain list. Nearly all of it has its place in the order of arrival. The
/// notice of an end has one only once the end has been noticed, which may be at any time until a receive finds
/// nothing else.
class Inbox {
public:
    void arrive(const Letter& letter, LinxRef timeout = 0);

    /// Several at once, in an order that nobody promises.
    void arriveTogether(const std::vector<Letter>& letters);

    void arriveOnceNoticed(const Letter& letter);

    /// Whatever ends there were have been noticed.
    void notice();

    bool empty() const { return arrivals_.empty(); }
    bool holds(const Selection& selection) const;

    /// Takes a signal that was received, if it may come next among those that the selection allows. False if it may
    /// not, or was not to come at all.
    bool take(const LinxSignal* signal, uint32_t size, LinxSpid sender, const Selection& selection, Letter& letter);

    /// Takes a time-out out. False when it is not here.
    bool takeTimeout(LinxRef timeout);

    uint32_t bytes() const;

private:
    /// It arrived between two moments.
    struct Arrival {
        Letter letter;
        uint64_t earliest;
        uint64_t latest;
        LinxRef timeout;
    };
    static constexpr uint64_t never = ~uint64_t{0};

    bool mayBeNext(const Arrival& arrival, const Selection& selection) const;

    std::vector<Arrival> arrivals_;
    uint64_t now_ = 0;
};

}  // namespace fuzz

#endif
