#ifndef LINXIPC_HOST_HANDLES_H
#define LINXIPC_HOST_HANDLES_H

#include "host/endpoint/endpoint.h"

struct LINX {
    linx::Endpoint* endpoint;
};

namespace linx {

/// The handles of the modelled processes. Stands in for the shipped header of the same path, whose table lies outside
/// the memory that is put back when an execution begins again.
namespace handles {

inline LINX* add(std::unique_ptr<Endpoint> endpoint) {
    return new LINX{endpoint.release()};
}
inline Endpoint* endpointOf(const LINX* handle) {
    return handle->endpoint;
}
inline std::unique_ptr<Endpoint> remove(LINX* handle) {
    Endpoint* endpoint = handle->endpoint;
    handle->endpoint = nullptr;
    return std::unique_ptr<Endpoint>(endpoint);
}

}  // namespace handles
}  // namespace linx

#endif
