#ifndef LINXIPC_TESTS_LINK_STORM_BOOKS_H
#define LINXIPC_TESTS_LINK_STORM_BOOKS_H

#include <atomic>
#include <cstdint>

#include "tests/kit/complaints.h"

namespace linkstorm {

constexpr uint32_t nodes = 3;
constexpr uint32_t seatsOfNode = 2;
constexpr uint32_t seats = nodes * seatsOfNode;
constexpr uint32_t streamsKept = 64;

constexpr uint32_t nodeOf(uint32_t seat) {
    return seat / seatsOfNode;
}

/// What one life of a server has sent to one proxy, and what of it has come. Written before and after each send, so
/// that it outlives both.
struct Stream {
    std::atomic<uint32_t> number;  ///< streams from one seat to another count from 1
    std::atomic<uint32_t> from;    ///< life
    std::atomic<uint32_t> begun;
    std::atomic<uint32_t> sent;
    std::atomic<uint32_t> received;
};

/// What the servers and the storm know of each other besides what they send, in memory that they share.
struct Books : linxtest::Complaints {
    std::atomic<uint32_t> life[seats];        ///< counts those that have held the seat
    std::atomic<uint32_t> doomed[seats];      ///< the last life of the seat that was killed
    std::atomic<bool> struck[seats];          ///< its end may be told
    std::atomic<uint32_t> era[nodes][nodes];  ///< counts the strikes that end the sessions of two nodes
    std::atomic<bool> stormy[nodes][nodes];   ///< these may end now

    std::atomic<uint32_t> epoch;                   ///< raised when everybody is to look again
    std::atomic<uint32_t> looked[seats];           ///< the epoch for which a server has seen all that had come
    std::atomic<uint32_t> heard[seats][seats];     ///< the epoch in which somebody asked, and was answered
    std::atomic<uint32_t> answerer[seats][seats];  ///< by this life

    std::atomic<uint32_t> streams[seats][seats];  ///< the latest
    Stream stream[seats][seats][streamsKept];

    std::atomic<bool> quiet;  ///< nobody sends any more
    std::atomic<bool> leave;

    std::atomic<uint64_t> letters;
    std::atomic<uint64_t> bytes;
    std::atomic<uint64_t> meetings;
    std::atomic<uint64_t> notices;
    std::atomic<uint64_t> replies;
    std::atomic<uint64_t> refusals;
    std::atomic<uint64_t> noMemory;

    std::atomic<uint32_t> lost;
    std::atomic<uint32_t> doubled;
    std::atomic<uint32_t> changed;
    std::atomic<uint32_t> early;
    std::atomic<uint32_t> missing;

    Stream& latest(uint32_t from, uint32_t to) { return at(from, to, streams[from][to]); }
    Stream& at(uint32_t from, uint32_t to, uint32_t number) { return stream[from][to][number % streamsKept]; }

    /// Whether the end of a proxy between the two may be told now.
    bool mayEnd(uint32_t seat, uint32_t other) const { return struck[other] || stormy[nodeOf(seat)][nodeOf(other)]; }
};

}  // namespace linkstorm

#endif
