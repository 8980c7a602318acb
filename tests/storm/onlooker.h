#ifndef LINXIPC_TESTS_STORM_ONLOOKER_H
#define LINXIPC_TESTS_STORM_ONLOOKER_H

#include <string>

#include "tests/traffic/ledger.h"

namespace storm {

/// Captures what the workers send and looks at all that can be seen of them, until they leave. Complains of what
/// nobody can have sent, or recorded.
void lookOn(traffic::Ledger& ledger, uint32_t seed);

/// Compares what the endpoints that live tell of themselves with the ledger's books, while nobody does anything. What
/// does not agree, or nothing.
std::string compareBooks(const traffic::Ledger& ledger);

/// The same of the endpoint of a life that was killed, which may have been amid a send or a receive.
std::string compareBooksOfKilled(const traffic::Ledger& ledger, uint32_t life);

}  // namespace storm

#endif
