#ifndef LINXIPC_HOST_ENDPOINT_FAST_PATH_H
#define LINXIPC_HOST_ENDPOINT_FAST_PATH_H

#include "host/endpoint/endpoint.h"

/*
 * The fast paths of the operations: no lock is needed, nobody has to be woken, all peers are known. They are in a
 * header, for linx.cpp, and call no other functions, so that a signal costs few instructions. One that does not apply
 * changes nothing; the operation is then done from the start by its full version.
 */
namespace linx {

inline LinxSignal* Endpoint::allocateAtOnce(uint32_t size, uint32_t number) {
    if (!isSignalSize(size) || !ownership_.enterAtOnce()) return nullptr;
    BlockRef block;
    const bool isThere = signals_.pool().popAtOnce(classForLines(linesForSignal(size)), block);
    LinxSignal* signal = isThere ? signals_.give(block, size, number) : nullptr;
    exit();
    return signal;
}

inline bool Endpoint::freeAtOnce(LinxSignal** signal) {
    if (!signals_.isRecent(*signal) || !ownership_.enterAtOnce()) return false;
    const BlockRef block = signals_.recent();
    const bool gone = signals_.pool().giveBackAtOnce(block);
    if (gone) signals_.letGo(signal);
    exit();
    return gone;
}

inline bool Endpoint::senderAtOnce(const LinxSignal* signal, Spid& sender) const {
    if (!ownership_.isIdle() || !signals_.isRecent(signal)) return false;
    sender = senderOf(*signals_.recent());
    return true;
}

[[gnu::always_inline]] inline Endpoint::Posted Endpoint::sendAtOnce(LinxSignal** signal, Spid to) {
    Peer* peer = peers_.latest(to);
    if (peer == nullptr || outbox_.isTapped() || !signals_.isRecent(*signal) || !ownership_.enterAtOnce())
        return Posted::refused;
    const BlockRef block = signals_.recent();
    signals_.letGo(signal);
    const Posted posted = outbox_.postAtOnce(block, *peer, to);
    if (posted == Posted::refused) signals_.handBack(block, signal);
    if (posted == Posted::done || posted == Posted::refused) exit();
    return posted;
}

inline int Endpoint::finishSend(Posted posted) {
    const int result = outbox_.finish(signals_.recent(), *peers_.latest(), posted);
    if (isReadinessInDoubtAfterSend()) updateReadiness();
    exit();
    return result;
}

[[gnu::always_inline]] inline int Endpoint::receiveAtOnce(LinxSignal** signal, const uint32_t* selection) {
    if (selection[0] != 0 || !inbox_.isBusy() || peers_.supervising() || !ownership_.enterAtOnce()) return 0;
    const BlockRef block = inbox_.takeArrival();
    const int size = signals_.isQueued(block) ? signals_.handOut(block, signal) : 0;
    exit();
    return size;
}

}  // namespace linx

#endif
