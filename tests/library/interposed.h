#ifndef LINXIPC_TESTS_LIBRARY_INTERPOSED_H
#define LINXIPC_TESTS_LIBRARY_INTERPOSED_H

#include <cstddef>

/// The test program replaces `close`, `strerror` and the operators new and delete, in the library too. `close` and
/// `strerror` report to the recording platform; memory is counted here, and runs out as told by
/// tests/support/failing_new.h.
namespace interposed {

extern bool refusesArrays;  // the next non-throwing new[] yields null

/// The number of buffers from non-throwing new[] that are not deleted yet.
unsigned liveArrays();

/// How many objects of this size this thread has allocated since the last call for the size.
unsigned objectsMade(std::size_t size);

}  // namespace interposed

#endif
