#ifndef LINXIPC_IPC_HELD_H
#define LINXIPC_IPC_HELD_H

#include <utility>

#include "ipc/linxIpc.h"

/// A signal or a name that LINX has handed out to an endpoint. It is given back at the end of the scope, also when an
/// exception ends it, unless it was let go of. Always inline: a call with the address would keep it in memory.
template <class Thing>
class Held {
public:
    /// Takes over `taken`, which may be null.
    [[gnu::always_inline]] Held(Thing* taken, const LinxIpc* by) : holder(by), thing(taken) {}
    Held(const Held&) = delete;
    Held& operator=(const Held&) = delete;
    [[gnu::always_inline]] ~Held() { GiveBack(); }

    Thing* Get() const { return thing; }

    /// Leaves it to the caller.
    Thing* LetGo() { return std::exchange(thing, nullptr); }

    [[gnu::always_inline]] void GiveBack() {
        Thing* returned = LetGo();
        if (returned != nullptr) Return(&returned);
    }

private:
    void Return(LinxSignal** signal) const { linx_free_buf(holder->Linx(), signal); }
    void Return(char** name) const { linx_free_name(holder->Linx(), name); }

    const LinxIpc* const holder;
    Thing* thing;
};

#endif
