#ifndef LINXIPC_TESTS_FUZZ_OPERATIONS_LETTER_H
#define LINXIPC_TESTS_FUZZ_OPERATIONS_LETTER_H

#include "platform/linx.h"

namespace fuzz {

/// What a signal is to look like to whoever has it.
struct Letter {
    uint32_t number;
    uint32_t size;  ///< number word included
    LinxSpid sender;
    uint32_t seed;  ///< of the payload
};

/// Writes the letter's payload, or as much of both ends as it takes to tell it from others.
void fill(LinxSignal* signal, const Letter& letter);

/// Whether the signal, of the letter's size, has the letter's number and payload.
bool isWritten(const LinxSignal* signal, const Letter& letter);

}  // namespace fuzz

#endif
