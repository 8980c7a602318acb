#ifndef LINXIPC_TESTS_TOOLS_DRAWER_H
#define LINXIPC_TESTS_TOOLS_DRAWER_H

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "tests/kit/domain.h"

/// In its scope Graphviz's `dot` is this shell script; or is not installed, where there is none.
class Drawer {
public:
    explicit Drawer(const std::string& script = {}) : variable_("PATH", directory_.c_str()) {
        for (const auto& entry : std::filesystem::directory_iterator("/usr/bin")) {
            const std::string name = entry.path().filename();
            // What runs programs of other machines is found by $PATH too.
            if (name.compare(0, 5, "qemu-") == 0)
                std::filesystem::create_symlink(entry.path(), directory_ + "/" + name);
        }
        if (script.empty()) return;
        const std::string program = directory_ + "/dot";
        std::ofstream(program) << "#!/bin/sh\n" << script << "\n";
        std::filesystem::permissions(program, std::filesystem::perms::owner_all);
    }
    ~Drawer() { std::filesystem::remove_all(directory_); }
    Drawer(const Drawer&) = delete;
    Drawer& operator=(const Drawer&) = delete;

private:
    static std::string makeDirectory() {
        std::string path = std::filesystem::temp_directory_path() / "linx-drawer.XXXXXX";
        if (mkdtemp(path.data()) == nullptr) std::abort();
        return path;
    }

    const std::string directory_ = makeDirectory();
    const linxtest::ScopedVariable variable_;
};

#endif
