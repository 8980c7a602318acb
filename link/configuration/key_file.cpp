#include "link/configuration/key_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "host/system/scoped_descriptor.h"
#include "link/engine/key_text.h"

namespace linx::link {
namespace {

std::string modeOf(const struct stat& file) {
    char text[8] = {};
    std::snprintf(text, sizeof text, "%04o", static_cast<unsigned>(file.st_mode & 07777));
    return text;
}

std::string troubleWith(const struct stat& file) {
    if (!S_ISREG(file.st_mode)) return "is no file; \"linx-link keygen FILE\" makes one";
    if (file.st_uid != geteuid() && file.st_uid != 0) {
        return "belongs to another user (" + std::to_string(file.st_uid) + "), who could have put any key there";
    }
    if ((file.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
        return "is open to others (mode " + modeOf(file) +
               ") and its key may be known; make a new one, or \"chmod 600\" it if nobody has read it";
    }
    return {};
}

}  // namespace

std::optional<std::string> readKeyFile(const std::string& path, std::string& trouble) {
    // Not blocking: a pipe in its place would hold this process up.
    const ScopedDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    struct stat status = {};
    if (file.get() == -1 || fstat(file.get(), &status) == -1) {
        trouble = std::string("cannot be read: ") + std::strerror(errno);
        return std::nullopt;
    }
    trouble = troubleWith(status);
    if (!trouble.empty()) return std::nullopt;
    char text[keyCharacters + 2] = {};
    const ssize_t size = read(file.get(), text, sizeof text);
    std::string key(text, size > 0 ? static_cast<size_t>(size) : 0);
    if (!key.empty() && key.back() == '\n') key.pop_back();
    if (isKeyText(key)) return key;
    trouble = "holds no secret key; \"linx-link keygen FILE\" makes one";
    return std::nullopt;
}

bool writeKeyFile(const std::string& path, const std::string& secretKey, std::string& trouble) {
    const ScopedDescriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (file.get() == -1) {
        trouble = errno == EEXIST ? "is there already, and its key would be lost; remove it first if that is meant"
                                  : std::string("cannot be made: ") + std::strerror(errno);
        return false;
    }
    const std::string line = secretKey + "\n";
    const bool isWritten = fchmod(file.get(), S_IRUSR | S_IWUSR) == 0 &&
                           write(file.get(), line.data(), line.size()) == static_cast<ssize_t>(line.size()) &&
                           fsync(file.get()) == 0;
    if (isWritten) return true;
    trouble = std::string("cannot be written: ") + std::strerror(errno);
    unlink(path.c_str());
    return false;
}

}  // namespace linx::link
