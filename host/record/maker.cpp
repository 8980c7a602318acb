#include "host/record/maker.h"

#include <unistd.h>

#include <cerrno>

#include "host/system/this_process.h"

namespace linx {

Maker makerNow() {
    const int keptErrno = errno;
    const Maker maker = {static_cast<uint32_t>(getpid()), geteuid(), namespaceOfThisProcess(), startOfThisProcess()};
    errno = keptErrno;
    return maker;
}

}  // namespace linx
