#ifndef LINXIPC_TESTS_KIT_SIGNALS_H
#define LINXIPC_TESTS_KIT_SIGNALS_H

#include <optional>
#include <string>
#include <vector>

#include "tests/kit/endpoint.h"

/// A selection of all signals.
constexpr uint32_t anySignal[] = {0};

using Bytes = std::vector<unsigned char>;

/// What is in a signal: everything a test may want to know after the signal has been freed.
struct Received {
    uint32_t number = 0;
    LinxSpid sender = 0;
    Bytes payload;

    /// The payload's word at `index`; 0 when it is shorter.
    uint32_t word(size_t index = 0) const;
};

unsigned char* payloadOf(LinxSignal* signal);

/// `size` bytes that differ from place to place and from seed to seed.
Bytes pattern(size_t size, uint32_t seed);

LinxSpid spidOf(LINX* linx);

/// Sends a signal whose payload is these words, or these bytes. 0 or an errno value.
int send(LINX* linx, LinxSpid to, uint32_t number, const std::vector<uint32_t>& words = {});
int sendBytes(LINX* linx, LinxSpid to, uint32_t number, const Bytes& payload);

/// Sends a signal of that size, whatever is in it. The test fails when that fails. It needs no memory of its own, nor
/// does receiveNumber.
void sendNumber(LINX* linx, LinxSpid to, uint32_t number, uint32_t size = sizeof(LinxSignal));

/// Receives one of the given numbers, or any signal if there is none given. Nothing when the time runs out.
std::optional<Received> receive(LINX* linx, uint32_t milliseconds, const std::vector<uint32_t>& numbers = {});

/// Receives the next signal without waiting. Its number; 0 when there was none.
uint32_t receiveNumber(LINX* linx);

/// Receives any signal and expects it to be of this number.
Received expectSignal(LINX* linx, uint32_t number, uint32_t milliseconds = patience);

/// Receives this number, whatever else is queued.
Received expectAmongOthers(LINX* linx, uint32_t number);

void expectNothing(LINX* linx);

/// Sends every signal of this number back to where it came from, until none has come for long.
void sendBack(LINX* linx, uint32_t number);

/// Finds an endpoint, waiting for it to be opened if need be.
LinxSpid hunt(LINX* linx, const std::string& name);

/// Asks for a signal of this number when `spid` ends.
LinxRef attach(LINX* linx, LinxSpid spid, uint32_t number);

/// The name of a spid, empty when it is not known.
std::string nameOf(LINX* linx, LinxSpid spid);

#endif
