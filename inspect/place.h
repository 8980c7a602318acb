#ifndef LINXIPC_INSPECT_PLACE_H
#define LINXIPC_INSPECT_PLACE_H

#include <string>

#include "host/system/scoped_descriptor.h"

namespace linx {
namespace inspect {

/// Where a domain lies, open for reading. Nothing is made and nothing joined.
class Place {
public:
    Place() = default;

    /// Opens the domain in this directory. False with errno: ENOENT when there is none, EPROTO when its arena is no
    /// regular file, or what the file system says.
    bool openDirectory(const std::string& path);

    /// Opens an arena by itself, such as the copy of one: whether its endpoints live cannot be asked then. False with
    /// errno, as above.
    bool openFile(const std::string& path);

    /// Of the domain or of the arena's file, as it was opened.
    const std::string& path() const { return path_; }

    /// -1 where an arena was opened by itself.
    int directory() const { return directory_.get(); }
    int file() const { return file_.get(); }

private:
    std::string path_;
    ScopedDescriptor directory_;
    ScopedDescriptor file_;
};

}  // namespace inspect
}  // namespace linx

#endif
