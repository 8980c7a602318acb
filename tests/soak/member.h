#ifndef LINXIPC_TESTS_SOAK_MEMBER_H
#define LINXIPC_TESTS_SOAK_MEMBER_H

#include <map>
#include <random>

#include "ipc/linxIpc.h"
#include "tests/soak/board.h"

namespace soak {

using traffic::Kind;
using traffic::Letter;
using traffic::Life;

/// One life of an endpoint of the library, under the name of its seat. Everything that comes is compared with what
/// its sender has written into the ledger: by name, since that is how the library sends. So what a server gets from a
/// life begins with number 1; who comes and goes may have had a predecessor, who got the numbers before.
class Member {
public:
    Member(Board& board, uint32_t seat, uint32_t process, uint32_t seed);
    ~Member();
    Member(const Member&) = delete;
    Member& operator=(const Member&) = delete;

    /// Opens, has a word with each server and leaves things behind.
    void visit();

protected:
    /// Somebody who has sent something.
    struct Peer {
        uint32_t attaches = 0;
        uint32_t notices = 0;
        uint32_t received[traffic::kinds] = {};
    };

    // Sending.
    bool notify(uint32_t to, Kind kind, uint32_t question = 0, uint32_t hops = 0);
    void sendBare(uint32_t to);
    void ask(uint32_t to);
    void askMeanwhile(uint32_t to);
    void burst(uint32_t to);
    void useTimers();
    void supervise(const std::string& name, uint32_t life);
    void greet(uint32_t server);

    // Receiving.
    void attend();
    uint32_t heldSignals() const { return endpoint_.relayMessage.Sig() != nullptr ? 1 : 0; }
    bool take(int milliseconds);
    bool isSettled() const;
    void drawBalance();

    void complain(const std::string& text);
    uint32_t draw(uint32_t below) { return static_cast<uint32_t>(random_() % below); }
    uint32_t drawOtherServer();

    Board& board_;
    Ledger& ledger_;
    const uint32_t seat_;
    const uint32_t process_;
    std::map<uint32_t, Peer> peers_;           ///< by life
    uint32_t known_[traffic::mostSeats] = {};  ///< the life to send to, of who comes and goes
    uint32_t met_ = 0;

private:
    void compose(IpcMessage& message, uint32_t to, Kind kind, uint32_t question, uint32_t hops);
    uint32_t composeQuestion(IpcMessage& message, uint32_t to);
    void noteAnswer(uint32_t to, uint32_t sequence, int result);
    static void onLetter(LinxIpc* endpoint, void* self);
    static void onRelay(LinxIpc* endpoint, void* self);
    static void onOther(LinxIpc* endpoint, void* self);
    bool check(IpcMessage& message, Kind kind);
    void count(uint32_t life, uint32_t seat, Kind kind, uint32_t sequence, uint32_t modulus);
    Peer& meet(uint32_t life, uint32_t seat);
    void handleLetter(IpcMessage& message, Kind kind);
    void handleReply(const Letter& letter);
    void handleRelay(RelayMessage& message);
    void handleBare(IpcMessage& message);
    void handleNotice(uint32_t life);
    void handleTimeout(IpcMessage& message);
    void compareWithSent(uint32_t life, const Peer& peer);

    std::mt19937 random_;
    const uint32_t number_;
    Life& life_;
    traffic::ByteTally bytes_;
    LinxIpc endpoint_;
    uint32_t heard_[traffic::mostSeats] = {};  ///< the life heard last
    uint32_t lastQuestion_ = 0;
    uint32_t question_ = 0;       ///< that has not been answered
    uint32_t pendingTimers_ = 0;  ///< time-outs that have not come
};

std::string nameOfMember(uint32_t seat);

}  // namespace soak

#endif
