#include "ipc/linxIpc.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <optional>
#include <utility>

#include "ipc/Arrival.h"
#include "ipc/Failures.h"
#include "ipc/Held.h"
#include "ipc/ReservedSignal.h"
#include "ipc/SameName.h"
#include "ipc/SignalWait.h"
#include "log/LogLine.h"
#include "platform/DiffTime.h"

namespace {

constexpr std::uint32_t maxPayload = 65536 - numberSize;
constexpr std::uint32_t huntTimeout = 100;  // milliseconds
constexpr unsigned maxAttempts = 32;
constexpr int sendFailed = -2;  // result of an attempt to notify, unlike those of Notify: 0, -1, errno values
constexpr int noSignal = 1;
constexpr int notSupported = 1;
constexpr const char* unknownSender = "unknown";

}  // namespace

FileDescriptor::~FileDescriptor() {
    if (descriptor != -1) close(descriptor);
}

IpcMessage::~IpcMessage() {
    delete[] data;
}

int IpcMessage::Allocate(unsigned msgType, unsigned size, char* source) {
    type = msgType;
    fillPos = 0;
    if (size > maxPayload || capacity < size) {
        const int error = Enlarge(size);
        if (error != 0) return error;
    }
    length = size;
    if (source != nullptr) std::copy_n(source, size, data);
    return 0;
}

/// Replaces the buffer by one of `size` bytes; the content is lost. Fails with EMSGSIZE or ENOMEM, and the length is
/// 0. Cold: inlined, it would cost every message that fits its buffer 12 instructions.
[[gnu::cold]] int IpcMessage::Enlarge(unsigned size) {
    length = capacity = 0;
    if (size > maxPayload) return EMSGSIZE;  // the buffer stays until a larger size replaces it
    delete[] data;
    data = new (std::nothrow) char[size];
    if (data == nullptr) return ENOMEM;
    capacity = size;
    return 0;
}

int IpcMessage::Fill(const char* src, unsigned count) {
    if (count > length - fillPos) return ENOMEM;  // not fillPos + count > length: the sum might wrap
    std::copy_n(src, count, data + fillPos);
    fillPos += count;
    return 0;
}

char* IpcMessage::DataPtr() {
    return data;
}

RelayMessage::RelayMessage(LinxIpc* endpoint) : owner(endpoint) {}

RelayMessage::~RelayMessage() {
    if (signal != nullptr && owner->Linx() != nullptr) linx_free_buf(owner->Linx(), &signal);
    data = nullptr;  // was part of the signal: the base class must not free it
}

int RelayMessage::Allocate(unsigned msgType, unsigned size, char* buffer) {
    // Size 0 does not free the signal that is held. That is deliberate: it is what the header promises.
    if (signal != nullptr && size != 0) {
        linx_free_buf(owner->Linx(), &signal);
        data = nullptr;
    }
    if (buffer != nullptr) {
        signal = reinterpret_cast<LinxSignal*>(buffer);
    } else {
        signal = linx_alloc(owner->Linx(), size + numberSize, msgType);
        if (signal == nullptr) return noSignal;
    }
    type = msgType;
    length = size;
    capacity = size;
    signalSize = size + numberSize;
    fillPos = 0;
    data = payload(signal);
    return 0;
}

int RelayMessage::Fill(const char* src, unsigned count) {
    return signal == nullptr ? ENOMEM : IpcMessage::Fill(src, count);
}

void RelayMessage::Deallocate() {
    signal = nullptr;
    data = nullptr;
}

void RelayMessage::SetType(unsigned number) {
    if (signal != nullptr) signal->number = number;
}

const std::string LinxIpc::emptyString;

LinxIpc::LinxIpc(const std::string& endpointName) : relayMessage(this) {
    CommonInit(endpointName);
}

// Does not delegate to the other: when a null name throws, the members have to exist, so that they are destroyed.
LinxIpc::LinxIpc(const char* endpointName) : relayMessage(this) {
    CommonInit(endpointName);
}

void LinxIpc::CommonInit(const std::string& endpointName) {
    name = endpointName;
    linx = nullptr;
    huntCache.clear();
    lastDestination = huntCache.end();
    handlers.clear();
    defaultHandler = {};
}

int LinxIpc::Init() {
    if (linx != nullptr) return refused(logText::initAgain);
    linx = linx_open(name.c_str(), 0, nullptr);
    if (linx == nullptr) {
        logLine(logText::initFailed, name, errno);
        return errno;
    }
    descriptor = linx_get_descriptor(linx);
    return 0;
}

LinxIpc::~LinxIpc() {
    if (linx != nullptr) {
        linx_close(linx);
        linx = nullptr;  // tells relayMessage that its signal is gone with the handle
    }
    huntCache.clear();
    senderNames.clear();
    handlers.clear();
}

int LinxIpc::Send(const void*, unsigned, unsigned&) {
    logLine(logText::sendNotSupported);
    return notSupported;
}

int LinxIpc::Receive(void*, unsigned, unsigned&) {
    logLine(logText::receiveNotSupported);
    return notSupported;
}

int LinxIpc::Blocking(bool) {
    logLine(logText::blockingNotSupported);
    return notSupported;
}

void LinxIpc::RegisterHandler(unsigned type, void (*function)(LinxIpc*, void*), void* userData) {
    handlers[type] = {function, userData};
}

void LinxIpc::RegisterRelayHandler(unsigned type, void (*function)(LinxIpc*, void*), void* userData) {
    relayHandlers[type] = {function, userData};
}

void LinxIpc::RegisterShutdown(void (*function)(LinxIpc*, void*), void* userData) {
    RegisterHandler(e_ShutdownSignal, function, userData);
}

void LinxIpc::RegisterProcessDied(void (*function)(LinxIpc*, void*), void* userData) {
    RegisterHandler(e_ProcessDiedSignal, function, userData);
}

void LinxIpc::RegisterDefault(void (*function)(LinxIpc*, void*), void* userData) {
    defaultHandler = {function, userData};
}

void LinxIpc::DeregisterHandler(unsigned type) {
    relayHandlers.erase(type);
    handlers.erase(type);
}

void LinxIpc::DeregisterShutdown() {
    DeregisterHandler(e_ShutdownSignal);
}

void LinxIpc::DeregisterProcessDied() {
    DeregisterHandler(e_ProcessDiedSignal);
}

void LinxIpc::DeregisterDefault() {
    defaultHandler = {};
}

int LinxIpc::Receive(int timeout, unsigned type, const std::string& from, IpcMessage* msg) {
    return from.empty() ? HandleArrivals(emptyString, timeout, type, msg)
                        : HandleArrivalsWithCopy(from, timeout, type, msg);
}

/// Takes signals until one ends the wait. `peer`, the awaited name, must not change meanwhile.
int LinxIpc::HandleArrivals(const std::string& peer, int timeout, unsigned type, IpcMessage* msg) {
    if (linx == nullptr) return refused(logText::receiveUninitialized);
    IpcMessage& message = msg != nullptr ? *msg : rxMessage;
    SignalWait wait(timeout, type);
    for (;;) {
        Arrival arrival = Await(wait);
        if (arrival.signal == nullptr) return arrival.error;
        NameSender(arrival, message);
        if (arrival.number == LINX_OS_HUNT_SIG) return TakeHuntAnswer(arrival, message);
        const auto relay = relayHandlers.find(arrival.number);
        if (relay != relayHandlers.end())
            return HandToRelay(relay->second, arrival.signal.release(), arrival.payloadSize, message.GetSender());
        const int copied = CopyAndDispatch(arrival, type, message);
        wait.recalculate();
        arrival.signal.reset();
        if (!arrival.isReserved()) return copied;
        if (const std::optional<int> result = arrival.logAndConclude(peer)) return *result;
    }
}

/// The same with a copy of the name, as `from` may be a name of the endpoint's own that changes meanwhile. Cold:
/// inlined, it would cost every receive that awaits no peer 17 instructions.
[[gnu::cold]] int LinxIpc::HandleArrivalsWithCopy(const std::string& from, int timeout, unsigned type,
                                                  IpcMessage* msg) {
    const std::string peer = from;
    return HandleArrivals(peer, timeout, type, msg);
}

/// Waits for the next signal.
inline LinxIpc::Arrival LinxIpc::Await(SignalWait& wait) const {
    LinxSignal* signal = nullptr;
    const int size = wait.receive(linx, &signal);
    if (size == -1) return Arrival(failed(logText::receiveFailed));
    if (signal == nullptr) return Arrival(ETIMEDOUT);
    return Arrival(Held<LinxSignal>(signal, {this}), static_cast<std::uint32_t>(size));
}

/// Gives `message` the name of the endpoint that sent the signal.
inline void LinxIpc::NameSender(const Arrival& arrival, IpcMessage& message) {
    LinxSignal* signal = arrival.signal.get();
    const LinxSpid spid = linx_sender(linx, &signal);
    const auto known = senderNames.find(spid);
    const std::string& sender = known != senderNames.end() ? known->second : LearnSenderName(spid);
    if (!sameName(message.GetSender(), sender)) message.SetSender(sender);
}

/// Asks LINX for the name of `spid`. That is done once, deliberately: a spid that LINX cannot name stays "unknown".
const std::string& LinxIpc::LearnSenderName(LinxSpid spid) {
    char* found = nullptr;
    if (linx_get_name(linx, spid, &found) != 0) return senderNames.try_emplace(spid, unknownSender).first->second;
    const Held<char> learnt(found, {this});
    Remember(learnt.get(), spid)->second = spid;  // the one way in which an entry gets another spid
    return senderNames.find(spid)->second;
}

/// Enters a name and its spid into both tables or, when there is no memory, into none. Deliberately, this overwrites
/// nothing: a name keeps the spid that it has, and a spid its name. Returns the entry of the name.
LinxIpc::HuntCache::iterator LinxIpc::Remember(const std::string& peer, LinxSpid spid) {
    std::map<unsigned, std::string> named;
    named.try_emplace(spid, peer);
    const HuntCache::iterator entry = huntCache.try_emplace(peer, spid).first;
    senderNames.merge(named);  // cannot fail: it moves a node that has been allocated
    return entry;
}

/// Makes an empty message of the late answer to a hunt. Deliberately, its signal is not freed: it stays with the
/// handle, and there is at most one for each hunt that was given up.
inline int LinxIpc::TakeHuntAnswer(Arrival& arrival, IpcMessage& message) {
    static_cast<void>(arrival.signal.release());
    return message.Allocate(LINX_OS_HUNT_SIG, 0, nullptr);
}

/// Takes over `signal`, which has `size` bytes of payload, and calls its handler.
int LinxIpc::HandToRelay(const Callback& handler, LinxSignal* signal, std::uint32_t size, const std::string& sender) {
    Held<LinxSignal> held(signal, {this});
    relayMessage.SetSender(sender);  // may throw; only then does relayMessage take the signal
    relayMessage.Allocate(signal->number, size, reinterpret_cast<char*>(held.release()));
    handler.function(this, handler.userData);
    return 0;
}

/// Copies the signal into `message`, and calls the handler where one is due: also when copying fails, whose result it
/// returns.
inline int LinxIpc::CopyAndDispatch(const Arrival& arrival, unsigned type, IpcMessage& message) {
    const int result = message.Allocate(arrival.number, arrival.payloadSize, payload(arrival.signal.get()));
    if (result != 0) logLine(logText::receiveNotCopied, result);
    if (type != 0 && arrival.number != e_ShutdownSignal) return result;
    const auto found = handlers.find(arrival.number);
    if (found != handlers.end()) {
        found->second.function(this, found->second.userData);
    } else if (defaultHandler.function != nullptr) {
        defaultHandler.function(this, defaultHandler.userData);
    }
    return result;
}

int LinxIpc::Receive(Watchdog& watchdog, int timeout) {
    const int result = Receive(timeout, 0, emptyString, nullptr);
    return result == 0 || result == ETIMEDOUT ? watchdog.PetWatchdog() : result;
}

int LinxIpc::ResolveDestination(const std::string& destination, bool logErrors) {
    if (linx == nullptr) return refused(logText::resolveUninitialized);
    const auto cached = huntCache.find(destination);
    if (cached != huntCache.end() && cached->second == 0) {
        if (logErrors) logLine(logText::knownAsAbsent);
        return -1;
    }

    logLine(logText::hunting, destination);
    if (linx_hunt(linx, destination.c_str(), nullptr) == -1) {
        if (logErrors) logLine(logText::huntFailed, SystemError{errno});
        return -1;
    }

    static constexpr std::uint32_t huntSignals[] = {1, LINX_OS_HUNT_SIG};
    LinxSignal* answer = nullptr;
    if (linx_receive_w_tmo(linx, &answer, huntTimeout, huntSignals) == -1) {
        if (logErrors) logLine(logText::huntNotReceived, SystemError{errno});
        return -1;
    }
    if (answer == nullptr) {
        huntCache.try_emplace(destination, 0);  // deliberately for good: until a signal from it has been received
        if (logErrors) logLine(logText::huntNotAnswered);
        return -1;
    }

    const LinxSpid spid = linx_sender(linx, &answer);
    linx_free_buf(linx, &answer);
    Remember(destination, spid);
    return 0;
}

/// Finds out where `peer` is: mostly, where the previous message went.
inline LinxIpc::Destination LinxIpc::Find(const std::string& peer, bool logErrors) {
    const bool isLast = lastDestination != huntCache.end() && sameName(lastDestination->first, peer);
    return isLast && lastDestination->second != 0 ? Destination{Lookup::found, lastDestination->second}
                                                  : FindOrHunt(peer, logErrors);
}

/// Looks `peer` up, and hunts for it when it is not in the cache. The spid that such a hunt gives is used as it is.
LinxIpc::Destination LinxIpc::FindOrHunt(const std::string& peer, bool logErrors) {
    lastDestination = huntCache.find(peer);
    if (lastDestination != huntCache.end())
        return {lastDestination->second != 0 ? Lookup::found : Lookup::knownAbsent, lastDestination->second};
    if (ResolveDestination(peer, logErrors) != 0) return {Lookup::notFound, 0};
    return {Lookup::found, huntCache.find(peer)->second};
}

/// Removes the entry of `peer`, so that the next send hunts for it. Returns it, as `peer` may be the name in it.
LinxIpc::HuntCache::node_type LinxIpc::Forget(const std::string& peer) {
    lastDestination = huntCache.end();
    return huntCache.extract(peer);
}

const std::string& LinxIpc::MessageOriginator(int& notHunted) {
    const std::string& originator = rxMessage.GetSender();
    const auto cached = huntCache.find(originator);
    notHunted = cached == huntCache.end() ? 1 : 0;
    return notHunted != 0 ? originator : cached->first;
}

int LinxIpc::Attach(const char* peer, unsigned type) {
    if (linx == nullptr) return refused(logText::attachUninitialized);
    const Destination destination = Find(peer, true);
    if (destination.lookup == Lookup::notFound) logLine(logText::attachUnresolved);
    if (destination.lookup != Lookup::found) return -1;

    LinxSignal* notice = linx_alloc(linx, numberSize, type);  // null is for linx_attach to refuse
    attachFailed = linx_attach(linx, &notice, destination.spid) == 0 ? 1 : 0;
    if (attachFailed == 0) return 0;
    logLine(logText::attachRefused);
    return errno;
}

int LinxIpc::Notify(const std::string& destination, IpcMessage& msg, bool logErrors) {
    if (linx == nullptr) return refused(logText::notifyUninitialized);
    const std::uint32_t size = msg.Length() + numberSize;
    const int result = TrySend(destination, msg, size, logErrors);
    return result != sendFailed ? result : RetryNotify(destination, msg, size, logErrors);
}

/// Makes one attempt. Returns the result for Notify, or sendFailed, which may be repeated.
inline int LinxIpc::TrySend(const std::string& destination, IpcMessage& msg, std::uint32_t size, bool logErrors) {
    const Destination to = Find(destination, logErrors);
    if (to.lookup != Lookup::found) {
        if (logErrors && to.lookup == Lookup::notFound) logLine(logText::notifyUnresolved, destination);
        if (logErrors && to.lookup == Lookup::knownAbsent) logLine(logText::notifyAbsent);
        return -1;
    }
    Held<LinxSignal> signal(linx_alloc(linx, size, msg.MsgType()), {this});
    if (signal == nullptr) return failed(logText::notifyNoSignal);
    signal->number = msg.MsgType();
    std::copy_n(msg.DataPtr(), size - numberSize, payload(signal.get()));
    LinxSignal* filled = signal.release();  // a send takes the signal, even one that fails
    return linx_send(linx, &filled, to.spid) == -1 ? sendFailed : 0;
}

/// Makes all attempts after the first, whose send has failed.
int LinxIpc::RetryNotify(const std::string& destination, IpcMessage& msg, std::uint32_t size, bool logErrors) {
    const HuntCache::node_type forgotten = Forget(destination);  // kept: `destination` may be the name in it
    for (unsigned attemptsLeft = maxAttempts - 1; attemptsLeft > 0; --attemptsLeft) {
        if (logErrors) logFailedSend(attemptsLeft, destination, size);
        const int result = TrySend(destination, msg, size, logErrors);
        if (result == 0) logLine(logText::notifySentAfterRetries, maxAttempts - attemptsLeft);
        if (result != sendFailed) return result;
        Forget(destination);
    }
    if (logErrors) logFailedSend(0, destination, size);
    return 0;  // deliberate, and promised in the header: only the log tells that the last attempt failed too
}

int LinxIpc::Request(const std::string& destination, IpcMessage& message, unsigned replyType, int timeout,
                     IpcMessage* reply) {
    if (linx == nullptr) return refused(logText::requestUninitialized);
    const std::string peer = destination;  // which may be a name of the endpoint's own that sending removes
    const int sent = Notify(peer, message, true);
    if (sent != 0) {
        logLine(logText::requestNotSent, sent);
        return sent;
    }
    if (replyType == 0) return 0;
    const int received = HandleArrivals(peer, timeout, replyType, reply);
    if (received != 0) logLine(logText::requestNotAnswered, received);
    return received;
}

int LinxIpc::AsyncRequest(const std::string& destination, IpcMessage& message, unsigned replyType, int timeout,
                          IpcMessage* reply) {
    if (linx == nullptr) return refused(logText::asyncRequestUninitialized);
    const IpcMessage& inspected = reply != nullptr ? *reply : rxMessage;
    const int sent = Notify(destination, message, true);
    if (sent != 0 || replyType == 0) return sent;

    unsigned start = DiffTime::CalcInitialTimeout(timeout);
    int received = Receive(timeout, 0, emptyString, reply);
    while (received == 0 && inspected.MsgType() != replyType) {
        logLine(logText::asyncRequestGoesOn);
        const int timeLeft = DiffTime::ReCalcTimeout(start);
        start = DiffTime::CalcInitialTimeout(timeLeft);
        received = Receive(timeLeft, 0, emptyString, reply);
    }
    return received;
}

int LinxIpc::EnableTimer(int timeout, unsigned signalNumber) {
    if (linx == nullptr) return refused(logText::timerUninitialized);
    LinxSignal* signal = nullptr;
    if (signalNumber != 0) {
        signal = linx_alloc(linx, numberSize, signalNumber);
        if (signal == nullptr) return failed(logText::timerNoSignal);
    }
    timerRef = linx_request_tmo(linx, static_cast<std::uint32_t>(timeout), signalNumber != 0 ? &signal : nullptr);
    return timerRef != 0 ? 0 : failed(logText::timerRefused);
}

int LinxIpc::DisableTimer() {
    return linx_cancel_tmo(linx, &timerRef);
}

int LinxIpc::Relay(RelayMessage& message, const std::string& destination) {
    if (linx == nullptr) return refused(logText::relayUninitialized);
    if (message.Endpoint() != this) return refused(logText::relayForeignMessage);
    const Destination to = Find(destination, true);
    if (to.lookup == Lookup::notFound) return refused(logText::relayUnresolved, destination);
    if (to.lookup == Lookup::knownAbsent) return refused(logText::relayAbsent);

    LinxSignal* signal = message.Sig();
    const bool failed = linx_send(linx, &signal, to.spid) == -1;
    const SystemError error{errno};
    message.Deallocate();  // LINX has taken the signal; first, as logging may throw
    if (failed) {
        Forget(destination);
        logLine(logText::relayNotSent, error);
    }
    return 0;  // deliberate, and promised in the header: only the log tells that the send failed
}
