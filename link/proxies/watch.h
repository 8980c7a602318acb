#ifndef LINXIPC_LINK_PROXIES_WATCH_H
#define LINXIPC_LINK_PROXIES_WATCH_H

#include <vector>

#include "host/system/scoped_descriptor.h"
#include "link/proxies/local_endpoint.h"

namespace linx::link {

/// Endpoints of this process that are looked after, each under a number. Its own descriptor is readable while one of
/// theirs is.
class Watch {
public:
    Watch();

    bool add(const LocalEndpoint& endpoint, uint64_t number);
    /// It stays as readable as it is, and nobody is woken by it.
    void remove(const LocalEndpoint& endpoint);
    /// Some of those that are readable.
    std::vector<uint64_t> readable() const;
    int descriptor() const { return epoll_.get(); }

private:
    ScopedDescriptor epoll_;
};

}  // namespace linx::link

#endif
