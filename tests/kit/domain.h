#ifndef LINXIPC_TESTS_KIT_DOMAIN_H
#define LINXIPC_TESTS_KIT_DOMAIN_H

#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

namespace linxtest {

/// Sets an environment variable, or unsets it when `value` is null, and puts back what was there with its scope.
class ScopedVariable {
public:
    ScopedVariable(const char* name, const char* value) : name_(name) {
        const char* before = std::getenv(name);
        wasSet_ = before != nullptr;
        if (wasSet_) before_ = before;
        set(value);
    }
    ~ScopedVariable() { set(wasSet_ ? before_.c_str() : nullptr); }
    ScopedVariable(const ScopedVariable&) = delete;
    ScopedVariable& operator=(const ScopedVariable&) = delete;

    void set(const char* value) {
        if (value == nullptr) {
            unsetenv(name_.c_str());
        } else {
            setenv(name_.c_str(), value, 1);
        }
    }

private:
    std::string name_;
    bool wasSet_;
    std::string before_;
};

/// In its scope no process is ended for leaving an arena in disorder, which a test has laid down by hand.
class DisorderAllowed {
    const ScopedVariable unchecked_{"LINX_VALIDATE", "0"};
};

inline std::vector<std::string> namesIn(const std::string& path) {
    std::vector<std::string> names;
    DIR* directory = opendir(path.c_str());
    if (directory == nullptr) return names;
    while (const dirent* entry = readdir(directory)) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..") names.push_back(name);
    }
    closedir(directory);
    return names;
}

/// A domain of its own for the endpoints of a test: an empty directory that $LINX_DOMAIN names. It goes with the
/// object, with whatever lies in it.
class TestDomain {
public:
    TestDomain() : path_(makeDirectory()), variable_("LINX_DOMAIN", path_.c_str()) {}
    ~TestDomain() {
        for (const std::string& name : files()) {
            const std::string file = path_ + "/" + name;
            if (unlink(file.c_str()) == -1) rmdir(file.c_str());
        }
        EXPECT_EQ(rmdir(path_.c_str()), 0) << path_;
    }

    const std::string& path() const { return path_; }
    std::string pathOf(const std::string& name) const { return path_ + "/" + name; }
    std::vector<std::string> files() const { return namesIn(path_); }

    /// What endpoints leave behind that did not end: anything but the arena.
    std::vector<std::string> leftovers() const {
        std::vector<std::string> left;
        for (const std::string& name : files()) {
            if (name != "arena") left.push_back(name);
        }
        return left;
    }

    /// The memory that the arena's file takes.
    uint64_t arenaBytes() const {
        struct stat status = {};
        EXPECT_EQ(stat(pathOf("arena").c_str(), &status), 0);
        return static_cast<uint64_t>(status.st_blocks) * 512;
    }

    /// The descriptors that this process has open.
    static size_t openFileCount() { return namesIn("/proc/self/fd").size(); }

private:
    static std::string makeDirectory() {
        char path[] = "/dev/shm/linx-test.XXXXXX";
        EXPECT_NE(mkdtemp(path), nullptr);
        return path;
    }

    std::string path_;
    ScopedVariable variable_;
};

}  // namespace linxtest

#endif
