#ifndef LINXIPC_HOST_SYSTEM_NEW_FILE_H
#define LINXIPC_HOST_SYSTEM_NEW_FILE_H

#include <functional>

namespace linx {

/// Writes a file that has been opened. False with errno.
using Fill = std::function<bool(int file)>;

/// Makes the file `name` whole before it gets its name: others find all of it or none. True also when somebody else's
/// has got there first, which stays. False with errno. One who dies on the way leaves nothing, where the file system
/// makes files without a name.
bool makeWhole(int directory, const char* name, const Fill& fill);

/// The same where it does not: under an unfinished name, "<name>.<random>". What the dead have left under such names
/// goes when the next file is made so.
bool makeWholeUnderName(int directory, const char* name, const Fill& fill);

}  // namespace linx

#endif
