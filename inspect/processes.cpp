#include "inspect/processes.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cinttypes>
#include <climits>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <vector>

#include "host/mailbox/doorbell.h"
#include "host/system/this_process.h"

namespace linx {
namespace inspect {
namespace {

using Doorbells = std::unordered_map<Spid, ino_t>;

struct CloseDirectory {
    void operator()(DIR* directory) const { closedir(directory); }
};

/// Calls `visit(entry)` for each entry of a directory; for none where it cannot be read.
template <class Visit>
void forEachEntry(int parent, const char* path, Visit visit) {
    const int descriptor = openat(parent, path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor == -1) return;
    const std::unique_ptr<DIR, CloseDirectory> directory(fdopendir(descriptor));
    if (directory == nullptr) {
        close(descriptor);
        return;
    }
    while (const dirent* entry = readdir(directory.get())) visit(dirfd(directory.get()), *entry);
}

Doorbells identifyDoorbells(int directory) {
    Doorbells doorbells;
    if (directory == -1) return doorbells;
    forEachEntry(directory, ".", [&](int, const dirent& entry) {
        const Spid spid = doorbell::spidOfFile(entry.d_name);
        if (spid != Spid::none) doorbells[spid] = entry.d_ino;
    });
    return doorbells;
}

std::vector<pid_t> allProcesses() {
    std::vector<pid_t> pids;
    forEachEntry(AT_FDCWD, "/proc", [&](int, const dirent& entry) {
        const char* end = entry.d_name + std::strlen(entry.d_name);
        pid_t pid = 0;
        const auto parsed = std::from_chars(entry.d_name, end, pid);
        if (parsed.ec == std::errc() && parsed.ptr == end) pids.push_back(pid);
    });
    std::sort(pids.begin(), pids.end());
    return pids;
}

std::string linkAt(int directory, const char* name) {
    char path[PATH_MAX];
    const ssize_t length = readlinkat(directory, name, path, sizeof path);
    return std::string(path, static_cast<size_t>(std::max<ssize_t>(length, 0)));
}

/// Finds the doorbells of a domain that processes read. There may be thousands of descriptors: each costs one
/// question, and those of doorbells that nobody is known to read one or two more.
class Readers {
public:
    explicit Readers(int directory) : doorbells_(identifyDoorbells(directory)) {
        struct stat status;
        if (fstat(directory, &status) == -1) return;
        device_ = status.st_dev;
    }

    void lookAt(pid_t pid) {
        const std::string folder = "/proc/" + std::to_string(pid) + "/fd";
        forEachEntry(AT_FDCWD, folder.c_str(), [&](int descriptors, const dirent& entry) {
            const Spid spid = doorbellAt(descriptors, entry.d_name);
            if (spid != Spid::none && reads(descriptors, entry.d_name, spid)) found_[spid] = pid;
        });
    }

    const std::unordered_map<Spid, pid_t>& found() const { return found_; }
    bool areAllFound() const { return found_.size() == doorbells_.size(); }

private:
    /// The spid whose doorbell the descriptor seems to be of; none where it is known who reads that.
    Spid doorbellAt(int descriptors, const char* descriptor) const {
        const std::string path = linkAt(descriptors, descriptor);
        const size_t slash = path.rfind('/');
        if (slash == std::string::npos) return Spid::none;
        const Spid spid = doorbell::spidOfFile(path.c_str() + slash + 1);
        return doorbells_.count(spid) == 0 || found_.count(spid) != 0 ? Spid::none : spid;
    }

    /// A descriptor's /proc link is owner-readable if the descriptor is readable.
    bool reads(int descriptors, const char* descriptor, Spid spid) const {
        struct stat access;
        struct stat file;
        return fstatat(descriptors, descriptor, &access, AT_SYMLINK_NOFOLLOW) == 0 &&
               (access.st_mode & S_IRUSR) != 0 && fstatat(descriptors, descriptor, &file, 0) == 0 &&
               file.st_dev == device_ && file.st_ino == doorbells_.at(spid);
    }

    Doorbells doorbells_;
    dev_t device_ = 0;
    std::unordered_map<Spid, pid_t> found_;
};

std::string firstLineOf(const std::string& path) {
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    return line;
}

}  // namespace

std::optional<Process> processOf(pid_t pid) {
    const std::string folder = "/proc/" + std::to_string(pid);
    struct stat status;
    if (stat(folder.c_str(), &status) == -1) return std::nullopt;
    // The state stands behind the name, which is in parentheses and may have some in it.
    const std::string line = firstLineOf(folder + "/stat");
    const size_t begin = line.find('(');
    const size_t end = line.rfind(')');
    if (begin == std::string::npos || end == std::string::npos || end + 2 >= line.size()) return std::nullopt;
    const char state = line[end + 2];
    if (state == 'Z' || state == 'X') return std::nullopt;  // only its parent has not asked yet how it ended
    return Process{pid, line.substr(begin + 1, end - begin - 1), status.st_uid, startIn(line.c_str()),
                   state == 'T' || state == 't'};
}

std::vector<Spid> doorbellsIn(int directory) {
    std::vector<Spid> spids;
    for (const auto& doorbell : identifyDoorbells(directory)) spids.push_back(doorbell.first);
    return spids;
}

std::unordered_map<Spid, pid_t> processesIn(int directory) {
    Readers readers(directory);
    for (const pid_t pid : allProcesses()) {
        if (readers.areAllFound()) break;
        readers.lookAt(pid);
    }
    return readers.found();
}

std::optional<pid_t> lockHolderOf(int file) {
    struct stat status;
    if (fstat(file, &status) == -1) return std::nullopt;
    std::ifstream locks("/proc/locks");
    for (std::string line; std::getline(locks, line);) {
        int pid = 0;
        unsigned major = 0;
        unsigned minor = 0;
        uintmax_t inode = 0;
        // Lines of waiting processes have an arrow.
        const char* format = "%*[0-9]: FLOCK %*s %*s %d %x:%x:%ju";
        if (std::sscanf(line.c_str(), format, &pid, &major, &minor, &inode) != 4 || inode != status.st_ino) continue;
        if (makedev(major, minor) == status.st_dev && pid > 0) return pid;
    }
    return std::nullopt;
}

}  // namespace inspect
}  // namespace linx
