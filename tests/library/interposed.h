#ifndef LINXIPC_TESTS_LIBRARY_INTERPOSED_H
#define LINXIPC_TESTS_LIBRARY_INTERPOSED_H

#include <cstddef>

/// The test program replaces `close`, `strerror` and the operators new and delete, in the library too. `close` is
/// recorded by the recording platform, `strerror` here; memory is counted here, and runs out as told by
/// tests/kit/failing_new.h, though never for the platform.
namespace interposed {

extern bool refusesArrays;      // the next non-throwing new[] yields null
extern bool strerrorGivesNull;  // whatever the error
extern unsigned strerrorCalls;

/// Forgets settings, counts and descriptors.
void reset();

/// Closing this descriptor, which there need not be, is a recorded call and nothing else.
void recordClosing(int descriptor);

/// The number of buffers from non-throwing new[] that are not deleted yet.
unsigned liveArrays();

/// How many objects of this size this thread has allocated since the last call for the size.
unsigned objectsMade(std::size_t size);

}  // namespace interposed

#endif
