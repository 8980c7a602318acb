#include "link/proxies/local_endpoint.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace linx::link {

std::optional<std::string> Received::text() const {
    if (size() == 0 || payload()[size() - 1] != 0) return std::nullopt;
    return std::string(reinterpret_cast<const char*>(payload()), size() - 1);
}

LocalEndpoint::LocalEndpoint(const std::string& name, uint32_t options)
    : linx_(linx_open(name.c_str(), options, nullptr)) {
    if (linx_ == nullptr) return;
    descriptor_ = linx_get_descriptor(linx_);
    LinxSignal* own = linx_alloc(linx_, sizeof(LinxSignal), 0);
    spid_ = own == nullptr ? 0 : linx_sender(linx_, &own);
    const int failure = errno;
    if (own != nullptr) linx_free_buf(linx_, &own);
    if (descriptor_ == -1 || spid_ == 0) close();
    errno = failure;
}

LocalEndpoint::LocalEndpoint(LocalEndpoint&& other) noexcept
    : linx_(std::exchange(other.linx_, nullptr)),
      spid_(std::exchange(other.spid_, 0)),
      descriptor_(std::exchange(other.descriptor_, -1)) {}

LocalEndpoint& LocalEndpoint::operator=(LocalEndpoint&& other) noexcept {
    std::swap(linx_, other.linx_);
    std::swap(spid_, other.spid_);
    std::swap(descriptor_, other.descriptor_);
    return *this;
}

void LocalEndpoint::close() {
    if (linx_ != nullptr) linx_close(std::exchange(linx_, nullptr));
    if (descriptor_ != -1) ::close(std::exchange(descriptor_, -1));
}

std::optional<Received> LocalEndpoint::receive() const {
    static constexpr uint32_t anySignal[] = {0};
    LinxSignal* signal = nullptr;
    const int size = linx_receive_w_tmo(linx_, &signal, 0, anySignal);
    if (size > 0) return Received(linx_, signal, static_cast<uint32_t>(size));
    if (size == -1 && errno != ENOMEM) throw DomainLost();
    return std::nullopt;
}

std::string LocalEndpoint::nameOf(LinxSpid spid) const {
    char* name = nullptr;
    if (linx_get_name(linx_, spid, &name) == -1) return {};
    std::string text = name;
    linx_free_name(linx_, &name);
    return text;
}

LinxSignal* LocalEndpoint::makeText(uint32_t number, const std::string& text) const {
    LinxSignal* const signal = linx_alloc(linx_, static_cast<uint32_t>(sizeof(LinxSignal) + text.size() + 1), number);
    if (signal != nullptr) std::memcpy(signal + 1, text.c_str(), text.size() + 1);
    return signal;
}

}  // namespace linx::link
