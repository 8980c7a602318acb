#include "tests/kit/endpoint.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "tests/kit/readable.h"

Endpoint::Endpoint(const std::string& name, uint32_t options) : linx_(linx_open(name.c_str(), options, nullptr)) {
    EXPECT_NE(linx_, nullptr) << name << ": " << std::strerror(errno);
}

Endpoint::Endpoint(Endpoint&& other) noexcept
    : linx_(std::move(other.linx_)), descriptor_(std::exchange(other.descriptor_, -1)) {}

Endpoint& Endpoint::operator=(Endpoint&& other) noexcept {
    close();
    linx_ = std::move(other.linx_);
    descriptor_ = std::exchange(other.descriptor_, -1);
    return *this;
}

void Endpoint::Close::operator()(LINX* linx) const {
    EXPECT_EQ(linx_close(linx), 0);
}

void Endpoint::close() {
    linx_.reset();
    if (descriptor_ != -1) ::close(descriptor_);  // ours since we asked for it
    descriptor_ = -1;
}

int Endpoint::descriptor() {
    if (descriptor_ == -1) descriptor_ = linx_get_descriptor(linx_.get());
    return descriptor_;
}

bool Endpoint::pollFor(uint32_t milliseconds) {
    return isReadable(descriptor(), static_cast<int>(milliseconds));
}
