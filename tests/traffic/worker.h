#ifndef LINXIPC_TESTS_TRAFFIC_WORKER_H
#define LINXIPC_TESTS_TRAFFIC_WORKER_H

#include <map>
#include <random>
#include <set>

#include "tests/kit/line.h"
#include "tests/traffic/ledger.h"

namespace traffic {

/// How a worker talks.
struct Manner {
    uint32_t nap = 0;        ///< microseconds to rest after each turn
    uint32_t largeIn = 100;  ///< one letter in so many is up to `large` bytes long; the others are short
    uint32_t large = 60000;
    uint32_t largestIn = ~0u;  ///< one in so many is as long as a signal can be, or somewhat less
};

/// The work of a process in the seat: one life after the other, until all are to leave or it is to retire. Its parent
/// says a word whenever those that have settled are to look what they are to do.
void work(Ledger& ledger, const Manner& manner, Line& parent, uint32_t seat, uint32_t process, uint32_t seed);

/// One life of a worker: its endpoint from open to close, what it expects and what it has been told. Everything that
/// comes is compared with what its sender has written into the ledger.
class Worker {
public:
    Worker(Ledger& ledger, const Manner& manner, Line& parent, uint32_t index, uint32_t process, uint32_t seed);
    ~Worker();
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    /// Talks to the others until it feels like closing, or is told to leave.
    void live();

private:
    /// Somebody who was found, or who sent something: by his spid.
    struct Peer {
        uint32_t worker = 0;
        uint32_t attaches = 0;
        uint32_t notices = 0;
        uint32_t received[kinds] = {};
        bool hasEnded() const { return attaches != 0 && notices == attaches; }
    };

    struct Question {
        LinxSpid asked = 0;
        uint32_t number = 0;
    };

    // Sending.
    void talk();
    void burst(uint32_t to);
    uint32_t drawLength();
    bool write(uint32_t to, Kind kind, uint32_t question, uint32_t hops);
    bool post(LinxSignal* signal, uint32_t to, Kind kind);
    void wasRefused(uint32_t to, int error);
    LinxSignal* token(uint32_t number, uint32_t id);

    // Expecting.
    void hunt(uint32_t whom);
    Peer& meet(LinxSpid spid, uint32_t worker);
    void address(LinxSpid spid, const Peer& peer);
    void attach(LinxSpid spid);
    void useTimers();
    void runErrand();

    // Receiving.
    void awaitSignal();
    void sleepOn();
    int descriptor();
    bool take(uint32_t milliseconds, const uint32_t* selection);
    void handle(LinxSignal* signal, uint32_t size);
    void handleLetter(LinxSignal* signal, uint32_t size, Kind kind);
    void passOn(LinxSignal* signal);
    void handleFound(LinxSpid sender, uint32_t id);
    void handleNotice(LinxSpid sender, uint32_t id);
    void handleTimeout(LinxSpid sender, uint32_t id);
    void compareWithSent(LinxSpid spid, const Peer& peer);

    // Ending.
    bool isSettled() const;
    void drawBalance();

    void complain(const std::string& text);
    uint32_t draw(uint32_t below) { return static_cast<uint32_t>(random_() % below); }

    Ledger& ledger_;
    const Manner manner_;
    Line& parent_;
    ByteTally bytes_;
    const uint32_t index_;
    std::mt19937 random_;
    const uint32_t number_;
    Life& life_;
    const bool usesTimers_;
    LINX* linx_;
    int descriptor_ = -1;
    LinxSpid own_ = 0;
    uint32_t lastId_ = 0;

    std::map<LinxSpid, Peer> peers_;
    LinxSpid current_[mostSeats] = {};       ///< whom to send to
    uint32_t hunting_[mostSeats] = {};       ///< hunt that has not been answered
    Question questions_[mostSeats];          ///< request that has not been answered
    std::map<uint32_t, LinxSpid> attached_;  ///< notices that have not come
    std::map<uint32_t, LinxRef> timers_;     ///< time-outs that have not come
};

}  // namespace traffic

#endif
