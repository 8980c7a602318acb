// The fifteen operations as C sees them: every argument is checked here or right behind, and no exception gets out.

#include "platform/linx.h"

#include <cerrno>
#include <cstring>
#include <new>

#include "host/endpoint/endpoint.h"
#include "host/handles.h"

namespace {

using linx::Endpoint;

/// When the handle is none, or a fork has made it doubtful whose the endpoint is.
[[gnu::cold, gnu::noinline]] Endpoint* enterDoubtful(Endpoint* endpoint) {
    if (endpoint != nullptr) return endpoint->isOurs() ? endpoint : nullptr;
    errno = EINVAL;
    return nullptr;
}

/// The endpoint behind a handle, if this process may use it.
inline Endpoint* enter(LINX* handle) {
    Endpoint* endpoint = linx::handles::find(handle);
    const bool doubtful = endpoint == nullptr || !endpoint->isKnownToBeOurs();
    return doubtful ? enterDoubtful(endpoint) : endpoint;
}

/// Runs `operation`; memory that runs out in it is an error of the call.
template <class Result, class Operation>
Result guard(Result failure, Operation operation) noexcept {
    try {
        return operation();
    } catch (const std::bad_alloc&) {
        errno = ENOMEM;
        return failure;
    }
}

template <class Result>
Result refuse(Result failure) {
    errno = EINVAL;
    return failure;
}

/// Whether `text` can be an endpoint's name; errno tells what is wrong with it.
bool isName(const char* text, size_t& length) {
    length = text == nullptr ? 0 : strnlen(text, linx::maxNameLength + 1);
    if (length != 0 && length <= linx::maxNameLength) return true;
    errno = length == 0 ? EINVAL : ENAMETOOLONG;
    return false;
}

}  // namespace

LINX* linx_open(const char* name, uint32_t options, void* argument) {
    size_t length;
    if (options != 0 || argument != nullptr) return refuse<LINX*>(nullptr);
    if (!isName(name, length)) return nullptr;
    return guard<LINX*>(nullptr, [&]() -> LINX* {
        std::unique_ptr<Endpoint> endpoint = Endpoint::open({name, static_cast<uint32_t>(length)});
        if (endpoint == nullptr) return nullptr;
        LINX* handle = linx::handles::add(std::move(endpoint));
        if (handle == nullptr) errno = ENOSPC;
        return handle;
    });
}

int linx_get_descriptor(LINX* linx) {
    Endpoint* endpoint = enter(linx);
    return endpoint == nullptr ? -1 : endpoint->descriptor();
}

int linx_close(LINX* linx) {
    Endpoint* endpoint = linx::handles::find(linx);
    if (endpoint == nullptr) return refuse(-1);
    // Also without a claim to it: then only this process's copy goes.
    const bool left = endpoint->leave();
    linx::handles::remove(linx).reset();
    if (!left) errno = ECHILD;
    return left ? 0 : -1;
}

int linx_hunt(LINX* linx, const char* name, LinxSignal** huntSignal) {
    Endpoint* endpoint = enter(linx);
    if (endpoint == nullptr) return -1;
    return guard(-1, [&] {
        size_t length;
        if (isName(name, length)) return endpoint->hunt({name, static_cast<uint32_t>(length)}, huntSignal);
        return endpoint->forgo(huntSignal);
    });
}

LinxRef linx_attach(LINX* linx, LinxSignal** notice, LinxSpid spid) {
    Endpoint* endpoint = enter(linx);
    if (endpoint == nullptr) return 0;
    if (notice == nullptr) return refuse<LinxRef>(0);
    return guard<LinxRef>(0, [&] { return endpoint->attach(notice, spid); });
}

LinxSignal* linx_alloc(LINX* linx, uint32_t size, uint32_t number) {
    Endpoint* endpoint = enter(linx);
    if (endpoint == nullptr) return nullptr;
    return guard<LinxSignal*>(nullptr, [&] { return endpoint->allocate(size, number); });
}

int linx_free_buf(LINX* linx, LinxSignal** signal) {
    Endpoint* endpoint = enter(linx);
    if (endpoint == nullptr) return -1;
    if (signal == nullptr) return refuse(-1);
    return guard(-1, [&] { return endpoint->free(signal); });
}

int linx_send(LINX* linx, LinxSignal** signal, LinxSpid to) {
    Endpoint* endpoint = enter(linx);
    if (endpoint == nullptr) return -1;
    if (signal == nullptr) return refuse(-1);
    return guard(-1, [&] { return endpoint->send(signal, to); });
}

int linx_receive(LINX* linx, LinxSignal** signal, const uint32_t* selection) {
    Endpoint* endpoint = enter(linx);
    if (endpoint == nullptr) return -1;
    if (signal == nullptr || selection == nullptr) return refuse(-1);
    return guard(-1, [&] { return endpoint->receive(signal, nullptr, selection); });
}

int linx_receive_w_tmo(LINX* linx, LinxSignal** signal, uint32_t milliseconds, const uint32_t* selection) {
    Endpoint* endpoint = enter(linx);
    if (endpoint == nullptr) return -1;
    if (signal == nullptr || selection == nullptr) return refuse(-1);
    return guard(-1, [&] { return endpoint->receive(signal, &milliseconds, selection); });
}

LinxSpid linx_sender(LINX* linx, LinxSignal** signal) {
    Endpoint* endpoint = enter(linx);
    if (endpoint == nullptr) return 0;
    return signal == nullptr ? refuse<LinxSpid>(0) : endpoint->sender(signal);
}

int linx_get_name(LINX* linx, LinxSpid spid, char** name) {
    Endpoint* endpoint = enter(linx);
    if (endpoint == nullptr) return -1;
    if (name == nullptr) return refuse(-1);
    return guard(-1, [&] {
        *name = endpoint->nameOf(spid);
        return *name == nullptr ? -1 : 0;
    });
}

int linx_free_name(LINX* linx, char** name) {
    Endpoint* endpoint = enter(linx);
    if (endpoint == nullptr) return -1;
    return name == nullptr ? refuse(-1) : endpoint->freeName(name);
}

LinxRef linx_request_tmo(LINX* linx, uint32_t milliseconds, LinxSignal** signal) {
    Endpoint* endpoint = enter(linx);
    if (endpoint == nullptr) return 0;
    return guard<LinxRef>(0, [&] { return endpoint->requestTimeout(milliseconds, signal); });
}

int linx_cancel_tmo(LINX* linx, LinxRef* reference) {
    Endpoint* endpoint = enter(linx);
    if (endpoint == nullptr) return -1;
    return reference == nullptr ? refuse(-1) : guard(-1, [&] { return endpoint->cancelTimeout(reference); });
}
