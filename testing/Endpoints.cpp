#include "testing/Endpoints.h"

#include <fcntl.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace linx::testing {

LINX* Endpoints::open(const char* name, LinxSpid spid) {
    return &endpoints_.emplace_back(LINX{name, spid});
}

void Endpoints::close(LINX& endpoint) {
    endpoint.isOpen = false;
    if (endpoint.event != -1) ::close(std::exchange(endpoint.event, -1));
}

LINX* Endpoints::find(const LINX* endpoint) {
    for (LINX& known : endpoints_) {
        if (&known == endpoint) return &known;
    }
    return nullptr;
}

bool Endpoints::isOpen(const LINX* endpoint) {
    const LINX* const known = find(endpoint);
    return known != nullptr && known->isOpen;
}

std::string Endpoints::label(const LINX* endpoint) {
    if (endpoint == nullptr) return "[null]";
    const LINX* const known = find(endpoint);
    if (known == nullptr) return "[foreign]";
    return !empty() && known == &endpoints_[forgotten_] ? "" : "[" + known->name + "]";
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
