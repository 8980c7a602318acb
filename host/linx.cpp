// The fifteen operations as C sees them: every argument is checked here or right behind, and no exception gets out.

#include "platform/linx.h"

#include <cerrno>
#include <cstring>
#include <new>

#include "host/endpoint/fast_path.h"
#include "host/handles.h"
#include "platform/linx_link.h"

namespace {

using linx::Endpoint;
using linx::Spid;

/// The endpoint behind a handle, if an operation on it may begin: it ends with an Exit. Null with errno.
Endpoint* enter(LINX* handle) {
    Endpoint* endpoint = linx::handles::endpointOf(handle);
    if (endpoint != nullptr) return endpoint->enter() ? endpoint : nullptr;
    errno = EINVAL;
    return nullptr;
}

class Exit {
public:
    explicit Exit(Endpoint* endpoint) : endpoint_(endpoint) {}
    ~Exit() { endpoint_->exit(); }
    Exit(const Exit&) = delete;
    Exit& operator=(const Exit&) = delete;

private:
    Endpoint* endpoint_;
};

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

// The full versions of the operations that have a fast path. Inlined, each would have every call save registers that
// only it needs: 2 to 8 instructions.

[[gnu::noinline]] LinxSignal* allocateInFull(LINX* linx, uint32_t size, uint32_t number) {
    Endpoint* endpoint = enter(linx);
    if (endpoint == nullptr) return nullptr;
    const Exit exit(endpoint);
    return guard<LinxSignal*>(nullptr, [&] { return endpoint->allocate(size, number); });
}

[[gnu::noinline]] int freeInFull(LINX* linx, LinxSignal** signal) {
    Endpoint* endpoint = enter(linx);
    if (endpoint == nullptr) return -1;
    const Exit exit(endpoint);
    if (signal == nullptr) return refuse(-1);
    return guard(-1, [&] { return endpoint->free(signal); });
}

[[gnu::noinline]] int sendInFull(LINX* linx, LinxSignal** signal, LinxSpid to) {
    Endpoint* endpoint = enter(linx);
    if (endpoint == nullptr) return -1;
    const Exit exit(endpoint);
    if (signal == nullptr) return refuse(-1);
    return guard(-1, [&] { return endpoint->send(signal, Spid{to}); });
}

[[gnu::noinline]] int receiveInFull(LINX* linx, LinxSignal** signal, const uint32_t* milliseconds,
                                    const uint32_t* selection) {
    Endpoint* endpoint = enter(linx);
    if (endpoint == nullptr) return -1;
    const Exit exit(endpoint);
    if (signal == nullptr || selection == nullptr) return refuse(-1);
    return guard(-1, [&] { return endpoint->receive(signal, milliseconds, selection); });
}

int receiveInTimeInFull(LINX* linx, LinxSignal** signal, uint32_t milliseconds, const uint32_t* selection) {
    return receiveInFull(linx, signal, &milliseconds, selection);
}

[[gnu::noinline]] LinxSpid senderInFull(LINX* linx, LinxSignal** signal) {
    Endpoint* endpoint = enter(linx);
    if (endpoint == nullptr) return 0;
    const Exit exit(endpoint);
    return signal == nullptr ? refuse<LinxSpid>(0) : numberOf(endpoint->sender(signal));
}

[[gnu::noinline]] int finishSend(Endpoint* endpoint, Endpoint::Posted posted) {
    return endpoint->finishSend(posted);
}

[[gnu::always_inline]] inline int receiveAtOnce(LINX* linx, LinxSignal** signal, const uint32_t* selection) {
    if (signal == nullptr) return 0;
    Endpoint* endpoint = linx::handles::endpointOf(linx);
    if (endpoint == nullptr || selection == nullptr) return 0;
    return endpoint->receiveAtOnce(signal, selection);
}

}  // namespace

LINX* linx_open(const char* name, uint32_t options, void* argument) {
    size_t length;
    if ((options & ~linx::knownOptions) != 0 || argument != nullptr) return refuse<LINX*>(nullptr);
    if (!isName(name, length)) return nullptr;
    return guard<LINX*>(nullptr, [&]() -> LINX* {
        std::unique_ptr<Endpoint> endpoint = Endpoint::open({name, static_cast<uint32_t>(length)}, options);
        if (endpoint == nullptr) return nullptr;
        LINX* handle = linx::handles::add(std::move(endpoint));
        if (handle == nullptr) errno = ENOSPC;
        return handle;
    });
}

int linx_get_descriptor(LINX* linx) {
    Endpoint* endpoint = enter(linx);
    if (endpoint == nullptr) return -1;
    const Exit exit(endpoint);
    return endpoint->descriptor();
}

int linx_close(LINX* linx) {
    Endpoint* endpoint = linx::handles::endpointOf(linx);
    if (endpoint == nullptr) return refuse(-1);
    // If another process has it, only this copy is closed.
    const Endpoint::Departure departure = endpoint->leave();
    if (departure == Endpoint::Departure::refused) return -1;
    const int keptErrno = errno;
    std::unique_ptr<Endpoint> last = linx::handles::remove(linx);
    if (departure == Endpoint::Departure::forgotten) last.release();
    last.reset();
    errno = keptErrno;
    return departure == Endpoint::Departure::stays ? -1 : 0;
}

int linx_hunt(LINX* linx, const char* name, LinxSignal** huntSignal) {
    Endpoint* endpoint = enter(linx);
    if (endpoint == nullptr) return -1;
    const Exit exit(endpoint);
    return guard(-1, [&] {
        size_t length;
        if (isName(name, length)) return endpoint->hunt({name, static_cast<uint32_t>(length)}, huntSignal);
        return endpoint->forgo(huntSignal);
    });
}

LinxRef linx_attach(LINX* linx, LinxSignal** notice, LinxSpid spid) {
    Endpoint* endpoint = enter(linx);
    if (endpoint == nullptr) return 0;
    const Exit exit(endpoint);
    if (notice == nullptr) return refuse<LinxRef>(0);
    return guard<LinxRef>(0, [&] { return endpoint->attach(notice, Spid{spid}); });
}

LinxSignal* linx_alloc(LINX* linx, uint32_t size, uint32_t number) {
    Endpoint* endpoint = linx::handles::endpointOf(linx);
    LinxSignal* signal = endpoint == nullptr ? nullptr : endpoint->allocateAtOnce(size, number);
    return signal != nullptr ? signal : allocateInFull(linx, size, number);
}

int linx_free_buf(LINX* linx, LinxSignal** signal) {
    Endpoint* endpoint = linx::handles::endpointOf(linx);
    const bool isDone = endpoint != nullptr && signal != nullptr && endpoint->freeAtOnce(signal);
    return isDone ? 0 : freeInFull(linx, signal);
}

int linx_send(LINX* linx, LinxSignal** signal, LinxSpid to) {
    using Posted = Endpoint::Posted;
    Endpoint* endpoint = linx::handles::endpointOf(linx);
    const bool canTry = endpoint != nullptr && signal != nullptr;
    const Posted posted = canTry ? endpoint->sendAtOnce(signal, Spid{to}) : Posted::refused;
    if (posted == Posted::done) return 0;
    return posted == Posted::refused ? sendInFull(linx, signal, to) : finishSend(endpoint, posted);
}

int linx_receive(LINX* linx, LinxSignal** signal, const uint32_t* selection) {
    const int size = receiveAtOnce(linx, signal, selection);
    return size != 0 ? size : receiveInFull(linx, signal, nullptr, selection);
}

int linx_receive_w_tmo(LINX* linx, LinxSignal** signal, uint32_t milliseconds, const uint32_t* selection) {
    const int size = receiveAtOnce(linx, signal, selection);
    return size != 0 ? size : receiveInTimeInFull(linx, signal, milliseconds, selection);
}

LinxSpid linx_sender(LINX* linx, LinxSignal** signal) {
    const Endpoint* endpoint = linx::handles::endpointOf(linx);
    Spid sender;
    const bool isKnown = endpoint != nullptr && signal != nullptr && endpoint->senderAtOnce(*signal, sender);
    return isKnown ? numberOf(sender) : senderInFull(linx, signal);
}

int linx_get_name(LINX* linx, LinxSpid spid, char** name) {
    Endpoint* endpoint = enter(linx);
    if (endpoint == nullptr) return -1;
    const Exit exit(endpoint);
    if (name == nullptr) return refuse(-1);
    return guard(-1, [&] {
        *name = endpoint->nameOf(Spid{spid});
        return *name == nullptr ? -1 : 0;
    });
}

int linx_free_name(LINX* linx, char** name) {
    Endpoint* endpoint = enter(linx);
    if (endpoint == nullptr) return -1;
    const Exit exit(endpoint);
    return name == nullptr ? refuse(-1) : endpoint->freeName(name);
}

LinxRef linx_request_tmo(LINX* linx, uint32_t milliseconds, LinxSignal** signal) {
    Endpoint* endpoint = enter(linx);
    if (endpoint == nullptr) return 0;
    const Exit exit(endpoint);
    return guard<LinxRef>(0, [&] { return endpoint->requestTimeout(milliseconds, signal); });
}

int linx_cancel_tmo(LINX* linx, LinxRef* reference) {
    Endpoint* endpoint = enter(linx);
    if (endpoint == nullptr) return -1;
    const Exit exit(endpoint);
    return reference == nullptr ? refuse(-1) : guard(-1, [&] { return endpoint->cancelTimeout(reference); });
}

int linx_is_away(LINX* linx, const LinxSignal* signal, LinxSpid from) {
    Endpoint* endpoint = enter(linx);
    if (endpoint == nullptr) return -1;
    const Exit exit(endpoint);
    if (signal == nullptr) return refuse(-1);
    return guard(-1, [&] { return endpoint->isAway(signal, Spid{from}) ? 1 : 0; });
}
