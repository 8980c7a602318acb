#include "host/system/this_process.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "host/system/scoped_descriptor.h"
#include "host/system/uninterrupted.h"

namespace linx {
namespace {

constexpr int fieldsFromStateToStart = 19;

}  // namespace

/// The field behind the command, which is the only one that may hold spaces and brackets.
uint32_t startIn(const char* stat) {
    const char* at = std::strrchr(stat, ')');
    for (int field = 0; at != nullptr && field <= fieldsFromStateToStart; ++field) at = std::strchr(at + 1, ' ');
    return at == nullptr ? 0 : static_cast<uint32_t>(std::strtoull(at + 1, nullptr, 10));
}

uint32_t startOfThisProcess() {
    const ScopedDescriptor file(open("/proc/self/stat", O_RDONLY | O_CLOEXEC));
    char stat[1024];
    if (file.get() == -1) return 0;
    const ssize_t got = uninterrupted([&] { return read(file.get(), stat, sizeof stat - 1); });
    if (got <= 0) return 0;
    stat[got] = '\0';
    return startIn(stat);
}

uint32_t namespaceOfThisProcess() {
    struct stat status;
    return stat("/proc/self/ns/pid", &status) == 0 ? static_cast<uint32_t>(status.st_ino) : 0;
}

}  // namespace linx
