#ifndef LINXIPC_TESTS_KIT_ENDPOINT_H
#define LINXIPC_TESTS_KIT_ENDPOINT_H

#include <memory>
#include <string>

#include "platform/linx.h"
#include "tests/kit/in_time.h"

/// An open endpoint, closed at the end of its scope.
class Endpoint {
public:
    explicit Endpoint(const std::string& name, uint32_t options = 0);
    ~Endpoint() { close(); }
    Endpoint(Endpoint&& other) noexcept;
    Endpoint& operator=(Endpoint&& other) noexcept;

    operator LINX*() const { return linx_.get(); }
    void close();

    /// Leaves it to the caller to close the endpoint.
    LINX* release() { return linx_.release(); }

    int descriptor();
    bool readable() { return pollFor(0); }
    bool pollFor(uint32_t milliseconds);

    /// Waits in a poll of the descriptor until it is readable. False when that never happens.
    bool awaitReadable() { return pollFor(patience); }

private:
    struct Close {
        void operator()(LINX* linx) const;
    };

    std::unique_ptr<LINX, Close> linx_;
    int descriptor_ = -1;
};

#endif
