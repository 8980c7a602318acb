#ifndef LINXIPC_BENCH_HARNESS_WORKSPACE_H
#define LINXIPC_BENCH_HARNESS_WORKSPACE_H

#include <string>

namespace bench {

/// A directory in shared memory for one run: the LINX domain of its processes, and the place of sockets and the like.
/// It goes with the object, and all that lies in it.
class Workspace {
public:
    Workspace();
    ~Workspace();
    Workspace(const Workspace&) = delete;
    Workspace& operator=(const Workspace&) = delete;

    const std::string& path() const { return path_; }

private:
    std::string path_;
};

}  // namespace bench

#endif
