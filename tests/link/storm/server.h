#ifndef LINXIPC_TESTS_LINK_STORM_SERVER_H
#define LINXIPC_TESTS_LINK_STORM_SERVER_H

#include <map>
#include <random>

#include "tests/kit/endpoint.h"
#include "tests/link/storm/books.h"
#include "tests/traffic/letter.h"

namespace linkstorm {

/// One life of the server in a seat. It finds those of other nodes through the links, supervises them, and sends them
/// letters and requests as fast as they answer. Whatever comes is compared with what the books promise.
class Server {
public:
    Server(Books& books, uint32_t seat, uint32_t life, uint32_t seed);

    /// Until all are to leave.
    void live();

private:
    /// A proxy: by its spid.
    struct Proxy {
        uint32_t seat = 0;
        uint32_t era = 0;
        uint32_t stream = 0;    ///< of what comes from there
        uint32_t received = 0;  ///< letters of it
        bool hasEnded = false;
    };

    /// How it stands with the server in another seat.
    struct Peer {
        LinxSpid proxy = 0;  ///< 0 while it is sought
        bool isHunted = false;
        bool isRefused = false;
        uint32_t asked = 0;  ///< what was asked last, and not answered
        uint32_t askedIn = 0;
        uint32_t owed = 0;        ///< its question that is not answered
        uint32_t unanswered = 0;  ///< letters since the last answer
    };

    bool isFar(uint32_t seat) const { return nodeOf(seat) != nodeOf(seat_); }
    void hunt(uint32_t seat);
    void meet(LinxSpid spid, uint32_t seat);
    void address(LinxSpid spid, uint32_t seat);
    bool take(uint32_t milliseconds);
    void handleNotice(LinxSpid spid);
    void handleLetter(LinxSignal* signal, uint32_t size, traffic::Kind kind);
    void countIn(Proxy& from, const traffic::Letter& letter, uint32_t size);
    void answered(uint32_t seat, const traffic::Letter& letter);
    void talkTo(uint32_t seat);
    bool write(uint32_t seat, traffic::Kind kind, uint32_t question);
    bool hasHeardAll(uint32_t epoch) const;
    void look();
    uint32_t drawBytes();
    uint32_t draw(uint32_t below) { return static_cast<uint32_t>(random_() % below); }
    void complain(const std::string& text);

    Books& books_;
    const uint32_t seat_;
    const uint32_t life_;
    std::mt19937 random_;
    const Endpoint endpoint_;
    std::map<LinxSpid, Proxy> proxies_;
    Peer peers_[seats];
    uint32_t lastQuestion_ = 0;
};

}  // namespace linkstorm

#endif
