#ifndef LINXIPC_HOST_SYSTEM_NEW_FILE_H
#define LINXIPC_HOST_SYSTEM_NEW_FILE_H

#include <functional>

namespace linx {

/// Writes a file that has been opened. False with errno.
using Fill = std::function<bool(int file)>;

/// Makes and fills the file `name` before it gets its name: others find all of it or none. True also when another's
/// file got there first, which stays. False with errno. A death half-way leaves nothing, if the file system can make
/// files without a name.
bool makeWhole(int directory, const char* name, const Fill& fill);

/// The same if it cannot: under an unfinished name, "<name>.<random>". Leftovers of the dead under such names are
/// removed when the next file is made so.
bool makeWholeUnderName(int directory, const char* name, const Fill& fill);

}  // namespace linx

#endif
