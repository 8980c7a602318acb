#include "demo/domain.h"

#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace demo {

Domain::Domain() {
    std::string name = "/dev/shm/linx-demo.XXXXXX";
    if (mkdtemp(name.data()) == nullptr) return;
    path = name;
    setenv("LINX_DOMAIN", path.c_str(), 1);
}

bool Domain::Remove() {
    if (path.empty()) return true;
    std::error_code error;
    std::filesystem::remove_all(path, error);
    return !error && !std::filesystem::exists(path, error);
}

}  // namespace demo
