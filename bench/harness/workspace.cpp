#include "bench/harness/workspace.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "bench/harness/check.h"

namespace bench {

Workspace::Workspace() : path("/dev/shm/linx-bench." + std::to_string(getpid()) + ".XXXXXX") {
    Check(mkdtemp(path.data()) != nullptr, path);
    setenv("LINX_DOMAIN", path.c_str(), 1);
}

Workspace::~Workspace() {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
}

}  // namespace bench
