#ifndef LINXIPC_DEMO_DOMAIN_H
#define LINXIPC_DEMO_DOMAIN_H

#include <string>

namespace demo {

/// A LINX domain for one demonstration: a fresh directory on shared memory, named in this process's environment so
/// that everything started from here meets there.
class Domain {
public:
    /// Makes the directory; `Path()` stays empty when that fails, with errno set.
    Domain();
    ~Domain() { Remove(); }
    Domain(const Domain&) = delete;
    Domain& operator=(const Domain&) = delete;

    const std::string& Path() const { return path; }

    /// Removes the directory and all that is in it. True when nothing is left, also when it was removed before.
    bool Remove();

private:
    std::string path;
};

}  // namespace demo

#endif
