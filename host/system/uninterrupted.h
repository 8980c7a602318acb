#ifndef LINXIPC_HOST_SYSTEM_UNINTERRUPTED_H
#define LINXIPC_HOST_SYSTEM_UNINTERRUPTED_H

#include <cerrno>

namespace linx {

/// Repeats a system call while signal handlers interrupt it, and returns its result. `call()` returns -1 with errno
/// when it fails; otherwise errno stays.
template <class Call>
auto uninterrupted(Call call) {
    const int keptErrno = errno;
    auto result = call();
    while (result == -1 && errno == EINTR) result = call();
    if (result != -1) errno = keptErrno;
    return result;
}

}  // namespace linx

#endif
