#ifndef LINXIPC_IPC_HELD_H
#define LINXIPC_IPC_HELD_H

#include <memory>

#include "ipc/linxIpc.h"

/// Gives back to LINX what it has handed out to an endpoint.
struct GiveBack {
    const LinxIpc* endpoint;

    void operator()(LinxSignal* signal) const { linx_free_buf(endpoint->Linx(), &signal); }
    void operator()(char* name) const { linx_free_name(endpoint->Linx(), &name); }
};

/// A signal or a name that LINX has handed out. Unless it was released before, it goes back at the end of the scope,
/// even when an exception ends that.
template <class Thing>
using Held = std::unique_ptr<Thing, GiveBack>;

#endif
