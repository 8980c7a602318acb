#ifndef LINXIPC_TESTS_SCRIBBLE_ONLOOKER_H
#define LINXIPC_TESTS_SCRIBBLE_ONLOOKER_H

#include "tests/scribble/ledger.h"

namespace scribble {

/// Looks at everything that can be seen of the domain, and captures what is sent, until it is told to leave. Believes
/// nothing of it.
void lookOn(Ledger& ledger);

}  // namespace scribble

#endif
