#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

#include "platform/linx.h"
#include "testing/State.h"

namespace linx::testing {

void bringOperations() {}

namespace {

constexpr std::uint32_t largestSignal = 1 << 20;

RecordingPlatform& platform() {
    return RecordingPlatform::instance();
}

std::string quoted(const char* text) {
    return text != nullptr ? "\"" + std::string(text) + "\"" : "null";
}

std::string listed(const std::uint32_t* selection) {
    const std::uint32_t behind = selection[0] != 0 ? selection[0] : platform().wordsBehindZero;
    std::string text = "{" + std::to_string(selection[0]);
    for (std::uint32_t i = 1; i <= behind; ++i) text += ", " + std::to_string(selection[i]);
    return text + "}";
}

std::string id(LinxSignal* const* signal) {
    return state().signals.id(signal != nullptr ? *signal : nullptr);
}

void record(const LINX* linx, const std::string& call) {
    state().calls.push_back(state().endpoints.label(linx) + call);
}

/// Sets errno where there is an error.
bool failsWith(int error) {
    if (error != 0) errno = error;
    return error != 0;
}

bool fails(const char* operation) {
    return failsWith(state().failures.next(operation));
}

/// Whether the handle is one that operations can be made on; else EINVAL.
bool isOpen(const LINX* linx) {
    return !failsWith(state().endpoints.isOpen(linx) ? 0 : EINVAL);
}

/// The signal, when the program holds it; else null and EINVAL.
Signal* held(LinxSignal* const* signal) {
    Signal* const known = signal != nullptr ? state().signals.find(*signal) : nullptr;
    if (known != nullptr && known->inHand) return known;
    errno = EINVAL;
    return nullptr;
}

/// It is the program's no longer.
void takeOver(Signal& taken, LinxSignal** signal) {
    taken.inHand = false;
    *signal = nullptr;
}

void drop(const Signal& signal) {
    state().signals.free(signal.head());
}

/// The result of a receive that got this signal, or none.
int handOver(Signal* received, LinxSignal** signal) {
    if (received == nullptr) return 0;
    received->inHand = true;
    state().showReadiness();
    *signal = received->head();
    return static_cast<int>(received->size);
}

}  // namespace

}  // namespace linx::testing

using namespace linx::testing;

LINX* linx_open(const char* name, std::uint32_t options, void* argument) {
    const AtWork now;
    state().calls.push_back("linx_open(" + quoted(name) + ", " + std::to_string(options) + ", " +
                            (argument == nullptr ? "null" : "argument") + ")");
    if (fails("linx_open") || failsWith(name == nullptr ? EINVAL : 0)) return nullptr;
    const LinxSpid spid = state().endpoints.empty() ? Peers::ownSpid : state().peers.newSpid();
    state().peers.setName(spid, name);
    return state().endpoints.open(name, spid);
}

int linx_get_descriptor(LINX* linx) {
    const AtWork now;
    record(linx, "linx_get_descriptor");
    if (!isOpen(linx) || fails("linx_get_descriptor")) return -1;
    if (platform().descriptor) return *platform().descriptor;
    const int descriptor = state().endpoints.descriptor(*linx);
    state().showReadiness();
    return descriptor;
}

int linx_close(LINX* linx) {
    const AtWork now;
    record(linx, "linx_close");
    LINX* const known = state().endpoints.find(linx);
    if (failsWith(known == nullptr ? EINVAL : 0) || fails("linx_close")) return -1;
    state().endpoints.close(*known);
    return 0;
}

int linx_hunt(LINX* linx, const char* name, LinxSignal** huntSignal) {
    const AtWork now;
    record(linx, "linx_hunt(" + quoted(name) + ", " + id(huntSignal) + ")");
    if (!isOpen(linx)) return -1;
    Signal* answer = nullptr;
    if (huntSignal != nullptr && *huntSignal != nullptr) {
        answer = held(huntSignal);
        if (answer == nullptr) return -1;
        takeOver(*answer, huntSignal);
    }
    if (fails("linx_hunt") || failsWith(name == nullptr ? EINVAL : 0)) {
        if (answer != nullptr) drop(*answer);
        return -1;
    }
    state().hunt({name, linx, answer});
    return 0;
}

LinxRef linx_attach(LINX* linx, LinxSignal** notice, LinxSpid spid) {
    const AtWork now;
    record(linx, "linx_attach(" + id(notice) + ", " + std::to_string(spid) + ")");
    Signal* const signal = held(notice);
    if (signal == nullptr || !isOpen(linx)) return 0;
    takeOver(*signal, notice);
    if (fails("linx_attach")) {
        drop(*signal);
        return 0;
    }
    signal->receiver = linx;
    if (state().peers.hasEnded(spid)) {
        state().deliver(*signal, spid);
    } else {
        state().peers.await(Peers::Notice{spid, signal});
    }
    return ++state().lastReference;
}

LinxSignal* linx_alloc(LINX* linx, std::uint32_t size, std::uint32_t number) {
    const AtWork now;
    const std::string call = "linx_alloc(" + std::to_string(size) + ", " + std::to_string(number) + ")";
    const int refusal = size > largestSignal ? EMSGSIZE : size < sizeof(LinxSignal) ? EINVAL : 0;
    if (!isOpen(linx) || fails("linx_alloc") || failsWith(refusal)) {
        record(linx, call + " = null");
        return nullptr;
    }
    Signal& signal = state().signals.make(linx->spid, platform().allocWritesNumber ? number : 0xBAD, size);
    signal.inHand = true;
    ++platform().signalsAllocated;
    record(linx, call + " = " + signal.id);
    return signal.head();
}

int linx_free_buf(LINX* linx, LinxSignal** signal) {
    const AtWork now;
    record(linx, "linx_free_buf(" + id(signal) + ")");
    Signal* const freed = held(signal);
    if (freed == nullptr || !isOpen(linx) || fails("linx_free_buf")) return -1;
    ++platform().signalsFreed;
    takeOver(*freed, signal);
    drop(*freed);
    return 0;
}

int linx_send(LINX* linx, LinxSignal** signal, LinxSpid to) {
    const AtWork now;
    record(linx, "linx_send(" + id(signal) + ", " + std::to_string(to) + ")");
    Signal* const sent = held(signal);
    if (sent == nullptr || !isOpen(linx)) return -1;
    int error = state().failures.next("linx_send");
    if (error == 0 && state().peers.hasEnded(to)) error = ECONNRESET;
    const std::string bytes = sent->bytes();
    platform().sent.push_back({to, sent->head()->number, bytes.substr(sizeof(LinxSignal)), bytes, error});
    takeOver(*sent, signal);
    drop(*sent);
    return failsWith(error) ? -1 : 0;
}

int linx_receive(LINX* linx, LinxSignal** signal, const std::uint32_t* selection) {
    const AtWork now;
    record(linx, "linx_receive(" + listed(selection) + ")");
    *signal = nullptr;
    if (!isOpen(linx) || fails("linx_receive")) return -1;
    const int size = handOver(state().arrivals.take(linx, selection), signal);
    if (size != 0) return size;
    ++platform().endlessWaits;
    errno = EDEADLK;
    return -1;
}

int linx_receive_w_tmo(LINX* linx, LinxSignal** signal, std::uint32_t milliseconds, const std::uint32_t* selection) {
    const AtWork now;
    record(linx, "linx_receive_w_tmo(" + std::to_string(milliseconds) + ", " + listed(selection) + ")");
    *signal = nullptr;
    if (!isOpen(linx) || fails("linx_receive_w_tmo")) return -1;
    return handOver(state().arrivals.await(linx, selection, std::chrono::milliseconds(milliseconds)), signal);
}

LinxSpid linx_sender(LINX* linx, LinxSignal** signal) {
    const AtWork now;
    record(linx, "linx_sender(" + id(signal) + ")");
    const Signal* const received = held(signal);
    return received == nullptr || !isOpen(linx) || fails("linx_sender") ? 0 : received->sender;
}

int linx_get_name(LINX* linx, LinxSpid spid, char** name) {
    const AtWork now;
    record(linx, "linx_get_name(" + std::to_string(spid) + ")");
    const std::string* const known = state().peers.nameOf(spid);
    if (!isOpen(linx) || fails("linx_get_name") || failsWith(known == nullptr ? ESRCH : 0)) return -1;
    *name = strdup(known->c_str());
    if (*name == nullptr) return -1;
    ++state().namesInHand;
    return 0;
}

int linx_free_name(LINX* linx, char** name) {
    const AtWork now;
    record(linx, "linx_free_name(" + quoted(*name) + ")");
    if (!isOpen(linx) || fails("linx_free_name") || failsWith(*name == nullptr ? EINVAL : 0)) return -1;
    --state().namesInHand;
    std::free(std::exchange(*name, nullptr));
    return 0;
}

LinxRef linx_request_tmo(LINX* linx, std::uint32_t milliseconds, LinxSignal** signal) {
    const AtWork now;
    const std::string call = "linx_request_tmo(" + std::to_string(milliseconds) + ", " + id(signal) + ") = ";
    const bool isGiven = signal != nullptr && *signal != nullptr;
    if (!isOpen(linx) || (isGiven && held(signal) == nullptr)) {
        record(linx, call + "0");
        return 0;
    }
    Signal& timeOut = isGiven ? *held(signal) : state().signals.make(linx->spid, LINX_OS_TIMEOUT_SIG, "");
    if (isGiven) takeOver(timeOut, signal);
    if (fails("linx_request_tmo")) {
        drop(timeOut);
        record(linx, call + "0");
        return 0;
    }
    timeOut.sender = linx->spid;
    timeOut.receiver = linx;
    const LinxRef reference = ++state().lastReference;
    state().arrivals.addAfter(std::chrono::milliseconds(milliseconds), timeOut, reference);
    state().showReadiness();
    record(linx, call + std::to_string(reference));
    return reference;
}

int linx_cancel_tmo(LINX* linx, LinxRef* reference) {
    const AtWork now;
    record(linx, "linx_cancel_tmo(" + std::to_string(*reference) + ")");
    if (!isOpen(linx) || fails("linx_cancel_tmo")) return -1;
    if (platform().cancelResult) return *platform().cancelResult;
    const Signal* const timeOut = state().arrivals.cancel(*reference);
    if (timeOut == nullptr) {
        errno = EINVAL;
        return -1;
    }
    drop(*timeOut);
    *reference = 0;
    state().showReadiness();
    return 0;
}
