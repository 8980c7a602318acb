#ifndef LINXIPC_DEMO_DOMAIN_H
#define LINXIPC_DEMO_DOMAIN_H

#include <string>

namespace demo {

/// A LINX domain for one demonstration: a fresh directory on shared memory, named in this process's environment so
/// that everything started from here meets there.
class Domain {
public:
    /// Makes the directory; `path()` stays empty when that fails, with errno set.
    Domain();
    ~Domain() { remove(); }
    Domain(const Domain&) = delete;
    Domain& operator=(const Domain&) = delete;

    const std::string& path() const { return path_; }

    /// Removes the directory and all that is in it. True when nothing is left, also when it was removed before.
    bool remove();

private:
    std::string path_;
};

}  // namespace demo

#endif
