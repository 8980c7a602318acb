#include "testing/Endpoints.h"

#include <fcntl.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace linx::testing {

LINX* Endpoints::open(const char* name, LinxSpid spid) {
    return &endpoints_.emplace_back(LINX{name, spid});
}

void Endpoints::close(LINX& endpoint) {
    if (endpoint.event != -1) ::close(std::exchange(endpoint.event, -1));
}

bool Endpoints::has(const LINX* endpoint) const {
    const auto first = endpoints_.begin() + static_cast<std::ptrdiff_t>(forgotten_);
    return std::any_of(first, endpoints_.end(), [endpoint](const LINX& known) { return &known == endpoint; });
}

int Endpoints::descriptor(LINX& endpoint) {
    if (endpoint.event == -1) {
        endpoint.event = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
        endpoint.descriptor = fcntl(endpoint.event, F_DUPFD_CLOEXEC, 0);
    }
    return endpoint.descriptor;
}

void Endpoints::showReadiness(const Arrivals& arrivals) {
    const int error = errno;
    for (const LINX& endpoint : endpoints_) {
        if (endpoint.event == -1) continue;
        eventfd_t count = 0;
        eventfd_read(endpoint.event, &count);
        if (arrivals.hasAny(&endpoint)) eventfd_write(endpoint.event, 1);
    }
    errno = error;  // who arranges something, or receives it, has not failed
}

void Endpoints::forget() {
    for (LINX& endpoint : endpoints_) close(endpoint);
    forgotten_ = endpoints_.size();
}

}  // namespace linx::testing
