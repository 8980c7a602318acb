#ifndef LINXIPC_LINK_PROXIES_LOCAL_ENDPOINT_H
#define LINXIPC_LINK_PROXIES_LOCAL_ENDPOINT_H

#include <optional>
#include <string>

#include "link/session/bytes.h"
#include "platform/linx.h"

namespace linx::link {

/// The endpoints of this domain that are of no use any more: its memory is garbled or its files are gone.
struct DomainLost {};

/// A signal that an endpoint has received, freed with this object.
class Received {
public:
    Received(LINX* linx, LinxSignal* signal, uint32_t size) : linx_(linx), signal_(signal), size_(size) {}
    Received(Received&& other) noexcept : linx_(other.linx_), signal_(other.signal_), size_(other.size_) {
        other.signal_ = nullptr;
    }
    Received& operator=(Received&&) = delete;
    ~Received() {
        if (signal_ != nullptr) linx_free_buf(linx_, &signal_);
    }

    uint32_t number() const { return signal_->number; }
    LinxSpid sender() { return linx_sender(linx_, &signal_); }
    const uint8_t* payload() const { return reinterpret_cast<const uint8_t*>(signal_ + 1); }
    size_t size() const { return size_ - sizeof(LinxSignal); }
    /// The payload as text, without the NUL that ends it; nothing where none does.
    std::optional<std::string> text() const;

private:
    LINX* linx_;
    LinxSignal* signal_;
    uint32_t size_;
};

/// An endpoint that this process has open in the domain, closed with this object.
class LocalEndpoint {
public:
    LocalEndpoint() = default;
    /// Closed, with errno, when it cannot be opened.
    explicit LocalEndpoint(const std::string& name, uint32_t options = 0);
    LocalEndpoint(LocalEndpoint&& other) noexcept;
    LocalEndpoint& operator=(LocalEndpoint&& other) noexcept;
    ~LocalEndpoint() { close(); }

    explicit operator bool() const { return linx_ != nullptr; }
    LINX* get() const { return linx_; }
    LinxSpid spid() const { return spid_; }
    int descriptor() const { return descriptor_; }

    std::optional<Received> receive() const;
    /// Empty when it is not known any more.
    std::string nameOf(LinxSpid spid) const;
    /// With `text` and a NUL as payload. Null when there is no memory.
    LinxSignal* makeText(uint32_t number, const std::string& text) const;
    void close();

private:
    LINX* linx_ = nullptr;
    LinxSpid spid_ = 0;
    int descriptor_ = -1;
};

}  // namespace linx::link

#endif
