#include "bench/harness/workspace.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "bench/harness/check.h"

namespace bench {

Workspace::Workspace() : path_("/dev/shm/linx-bench." + std::to_string(getpid()) + ".XXXXXX") {
    check(mkdtemp(path_.data()) != nullptr, path_);
    setenv("LINX_DOMAIN", path_.c_str(), 1);
}

Workspace::~Workspace() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

}  // namespace bench
