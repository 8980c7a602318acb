#ifndef LINXIPC_TESTS_LIBRARY_INTERPOSED_H
#define LINXIPC_TESTS_LIBRARY_INTERPOSED_H

#include <cstddef>

/// The test program's own `close`, `strerror` and operators for arrays and objects take the place of the runtime's in
/// the library too. `close` and `strerror` report to the recording platform; memory is counted here, and runs out
/// where tests/support/failing_new.h is told so.
namespace interposed {

extern bool refusesArrays;  // the next non-throwing new[] yields null

/// The buffers that non-throwing new[] gave and delete[] has not taken back.
unsigned LiveArrays();

/// How often this thread asked for an object of this size since the last time that it was asked.
unsigned ObjectsMade(std::size_t size);

}  // namespace interposed

#endif
