#include "demo/domain.h"

#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace demo {

Domain::Domain() {
    std::string name = "/dev/shm/linx-demo.XXXXXX";
    if (mkdtemp(name.data()) == nullptr) return;
    path_ = name;
    setenv("LINX_DOMAIN", path_.c_str(), 1);
}

bool Domain::remove() {
    if (path_.empty()) return true;
    std::error_code error;
    std::filesystem::remove_all(path_, error);
    return !error && !std::filesystem::exists(path_, error);
}

}  // namespace demo
