#ifndef LINXIPC_TESTS_FUZZ_OPERATIONS_WORLD_H
#define LINXIPC_TESTS_FUZZ_OPERATIONS_WORLD_H

#include <array>
#include <map>
#include <set>
#include <string>

#include "host/arena/spid.h"
#include "tests/fuzz/operations/inbox.h"

namespace fuzz {

constexpr uint32_t seatCount = 4;

struct Timeout {
    LinxRef reference;
    Letter letter;
};

/// A place for one endpoint at a time, and what is known of the one that is there.
struct Seat {
    LINX* linx = nullptr;
    LinxSpid spid = 0;
    std::string name;
    int descriptor = -1;
    std::map<LinxSignal*, Letter> held;
    std::set<char*> names;
    Inbox inbox;
    std::vector<Timeout> due;      ///< arrive with the next receive
    std::vector<Timeout> distant;  ///< do not fall due while the input is played

    bool isOpen() const { return linx != nullptr; }
    uint32_t bytes() const;
};

/// The endpoints, and all that is to happen between them, as plainly as it can be told.
class World {
public:
    std::array<Seat, seatCount> seats;

    Seat* findOpen(const std::string& name);
    Seat* findOpen(LinxSpid spid);

    /// Whether there is or was such a spid.
    bool existed(LinxSpid spid) const { return known_.count(spid) != 0; }

    /// Null when there never was such a spid, or its slot has been used again.
    const std::string* nameOf(LinxSpid spid) const;

    /// `seat` holds the endpoint `spid` from now on: hunts for its name are answered.
    void open(Seat& seat, LINX* linx, LinxSpid spid, const std::string& name);

    /// Its hunts and notices are forgotten, its end will be noticed.
    void close(Seat& seat);

    void hunt(const Seat& hunter, const std::string& name, const Letter& letter) {
        hunts_.push_back({&hunter, name, letter});
    }
    void attach(Seat& watcher, LinxSpid whom, const Letter& notice);

    /// A receive begins: what has fallen due is there.
    static void fireTimeouts(Seat& seat);

    /// Whether the seat's endpoint takes the time-out back.
    static bool cancel(Seat& seat, LinxRef reference);

    /// All that is in signals.
    uint32_t bytes() const;

private:
    struct Hunt {
        const Seat* hunter;
        std::string name;
        Letter letter;
    };
    struct Attach {
        Seat* watcher;
        LinxSpid whom;
        Letter notice;
    };

    std::vector<Hunt> hunts_;
    std::vector<Attach> attaches_;
    std::map<LinxSpid, std::string> known_;
    std::map<linx::SlotIndex, LinxSpid> latest_;  ///< by slot
};

}  // namespace fuzz

#endif
