#include "ipc/linxIpc.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <optional>
#include <utility>

#include "directory/LinxServerNameList.h"
#include "ipc/Held.h"
#include "ipc/ReservedSignal.h"
#include "ipc/SameName.h"
#include "ipc/SignalWait.h"
#include "log/LogLine.h"
#include "platform/DiffTime.h"

namespace {

constexpr std::uint32_t numberSize = sizeof(LinxSignal);  // the number word in front of every payload
constexpr std::uint32_t maxPayload = 65536 - numberSize;
constexpr std::uint32_t huntTimeout = 100;  // milliseconds
constexpr unsigned maxAttempts = 32;
constexpr int noSignal = 1;
constexpr int notSupported = 1;
constexpr const char* unknownSender = "unknown";

char* Payload(LinxSignal* signal) {
    return reinterpret_cast<char*>(signal) + numberSize;
}

/// The process that a notice is about. A notice too short to tell counts as one about process 0.
e_Process DeadProcess(LinxSignal* notice, std::uint32_t dataSize) {
    std::int32_t process = e_UndefinedServer;
    if (dataSize >= sizeof process) std::memcpy(&process, Payload(notice), sizeof process);
    return static_cast<e_Process>(process);
}

/// Logs the end of `process` and tells whether it is the awaited peer's.
bool IsDeathOf(const std::string& awaited, e_Process process) {
    const std::string& processName = LinxServerNameList::Instance().Name(process);
    LogLine(logText::processDied, static_cast<int>(process), processName);
    if (processName != awaited) return false;
    LogLine(logText::hostUnreachable);
    return true;
}

void LogFailedSend(unsigned retriesLeft, const std::string& destination, std::uint32_t size) {
    const SystemError error{errno};
    if (retriesLeft > 0) {
        LogLine(logText::notifySendFailed, error, retriesLeft);
        LogLine(logText::notifySendFailedTo, destination);
        LogLine(logText::notifySendFailedSize, size);
    } else {
        LogLine(logText::notifyGivesUp, error);
        LogLine(logText::notifyGivesUpTo, destination);
        LogLine(logText::notifyGivesUpSize, size);
    }
}

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

/// Makes the buffer one of `size` bytes, whatever is in it. Fails with EMSGSIZE or ENOMEM, and the length is 0.
[[gnu::cold, gnu::noinline]] int IpcMessage::Enlarge(unsigned size) {
    length = capacity = 0;
    if (size > maxPayload) return EMSGSIZE;  // the buffer stays until a larger size replaces it
    delete[] data;
    data = new (std::nothrow) char[size];
    if (data == nullptr) return ENOMEM;
    capacity = size;
    return 0;
}

int IpcMessage::Fill(const char* src, unsigned count) {
    if (count > length - fillPos) return ENOMEM;  // the sum of position and count might wrap
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
    data = nullptr;
}

int RelayMessage::Allocate(unsigned msgType, unsigned size, char* buffer) {
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
    data = Payload(signal);
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

// Not a delegation: a null name must meet a whole object, whose members are then destroyed.
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
    if (linx != nullptr) {
        LogLine(logText::initAgain);
        return -1;
    }
    linx = linx_open(name.c_str(), 0, nullptr);
    if (linx == nullptr) {
        LogLine(logText::initFailed, name, errno);
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
    LogLine(logText::sendNotSupported);
    return notSupported;
}

int LinxIpc::Receive(void*, unsigned, unsigned&) {
    LogLine(logText::receiveNotSupported);
    return notSupported;
}

int LinxIpc::Blocking(bool) {
    LogLine(logText::blockingNotSupported);
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
    return from.empty() ? Await(timeout, type, emptyString, msg) : AwaitPeer(timeout, type, from, msg);
}

/// Awaits `from` under a name that nothing changes: it may be one of our own, which what arrives can change.
[[gnu::noinline]] int LinxIpc::AwaitPeer(int timeout, unsigned type, const std::string& from, IpcMessage* msg) {
    const std::string peer = from;
    return Await(timeout, type, peer, msg);
}

/// Receives for a caller who awaits `peer`, a name that stays what it is.
int LinxIpc::Await(int timeout, unsigned type, const std::string& peer, IpcMessage* msg) {
    if (linx == nullptr) {
        LogLine(logText::receiveUninitialized);
        return -1;
    }
    IpcMessage& message = msg != nullptr ? *msg : rxMessage;
    SignalWait wait(timeout, type);
    const std::optional<int> result = TakeNext(wait, type, peer, message);
    return result ? *result : GoOn(wait, type, peer, message);
}

/// Goes on with a wait that its first signal has not ended. Most are ended by it, and pay for no loop.
[[gnu::cold]] int LinxIpc::GoOn(SignalWait& wait, unsigned type, const std::string& peer, IpcMessage& message) {
    for (;;) {
        if (const std::optional<int> result = TakeNext(wait, type, peer, message)) return *result;
    }
}

/// Receives one signal and does with it what there is to do. Gives the result of the wait if that ends it.
[[gnu::always_inline]] inline std::optional<int> LinxIpc::TakeNext(SignalWait& wait, unsigned type,
                                                                   const std::string& peer, IpcMessage& message) {
    LinxSignal* received = nullptr;
    const int size = wait.Receive(linx, &received);
    if (size == -1) {
        LogLine(logText::receiveFailed, SystemError{errno});
        return errno;
    }
    if (received == nullptr) return ETIMEDOUT;
    Held<LinxSignal> signal(received, this);

    const std::string& sender = NameOfSender(&received);
    if (!SameName(message.GetSender(), sender)) message.SetSender(sender);
    const std::uint32_t number = signal.Get()->number;
    const std::uint32_t dataSize = static_cast<std::uint32_t>(size) - numberSize;
    if (number == LINX_OS_HUNT_SIG) {
        signal.LetGo();  // hunt signals are not given back
        return message.Allocate(LINX_OS_HUNT_SIG, 0, nullptr);
    }

    const auto relay = relayHandlers.find(number);
    if (relay != relayHandlers.end()) {
        relayMessage.SetSender(message.GetSender());  // can fail; afterwards the signal is relayMessage's
        relayMessage.Allocate(number, dataSize, reinterpret_cast<char*>(signal.LetGo()));
        relay->second.function(this, relay->second.userData);
        return 0;
    }

    const e_Process dead = number == e_ProcessDiedSignal ? DeadProcess(signal.Get(), dataSize) : e_UndefinedServer;
    const int result = message.Allocate(number, dataSize, Payload(signal.Get()));
    if (result != 0) LogLine(logText::receiveNotCopied, result);
    if (type == 0 || number == e_ShutdownSignal) Dispatch(number);
    wait.Recalculate();
    signal.GiveBack();

    if (number == e_ShutdownSignal) {
        LogLine(logText::shutdownRequested);
        return ESHUTDOWN;
    }
    if (number == e_ProcessDiedSignal) {
        if (IsDeathOf(peer, dead)) return EHOSTUNREACH;
        return std::nullopt;
    }
    if (number == e_WaitGoesOnSignal) return std::nullopt;
    return result;
}

int LinxIpc::Receive(Watchdog& watchdog, int timeout) {
    const int result = Receive(timeout, 0, emptyString, nullptr);
    return result == 0 || result == ETIMEDOUT ? watchdog.PetWatchdog() : result;
}

/// The name of the endpoint that sent `signal`.
inline const std::string& LinxIpc::NameOfSender(LinxSignal** signal) {
    const LinxSpid spid = linx_sender(linx, signal);
    const auto known = senderNames.find(spid);
    return known != senderNames.end() ? known->second : LearnSenderName(spid);
}

/// Asks LINX for the name of `spid`: once, also when it has no answer.
const std::string& LinxIpc::LearnSenderName(LinxSpid spid) {
    char* found = nullptr;
    if (linx_get_name(linx, spid, &found) != 0) return senderNames.try_emplace(spid, unknownSender).first->second;
    const Held<char> learnt(found, this);
    Remember(learnt.Get(), spid)->second = spid;
    return senderNames.find(spid)->second;
}

/// Enters a name and its spid into both tables or, when there is no memory, into none. What they hold already stays.
LinxIpc::HuntCache::iterator LinxIpc::Remember(const std::string& peer, LinxSpid spid) {
    std::map<unsigned, std::string> named;
    named.try_emplace(spid, peer);
    const HuntCache::iterator entry = huntCache.try_emplace(peer, spid).first;
    senderNames.merge(named);  // moves what has its memory already, so that nothing can fail any more
    return entry;
}

void LinxIpc::Dispatch(unsigned number) {
    const auto found = handlers.find(number);
    if (found != handlers.end()) {
        found->second.function(this, found->second.userData);
    } else if (defaultHandler.function != nullptr) {
        defaultHandler.function(this, defaultHandler.userData);
    }
}

int LinxIpc::ResolveDestination(const std::string& destination, bool logErrors) {
    if (linx == nullptr) {
        LogLine(logText::resolveUninitialized);
        return -1;
    }
    const auto cached = huntCache.find(destination);
    if (cached != huntCache.end() && cached->second == 0) {
        if (logErrors) LogLine(logText::knownAsAbsent);
        return -1;
    }

    LogLine(logText::hunting, destination);
    if (linx_hunt(linx, destination.c_str(), nullptr) == -1) {
        if (logErrors) LogLine(logText::huntFailed, SystemError{errno});
        return -1;
    }

    static constexpr std::uint32_t huntSignals[] = {1, LINX_OS_HUNT_SIG};
    LinxSignal* answer = nullptr;
    if (linx_receive_w_tmo(linx, &answer, huntTimeout, huntSignals) == -1) {
        if (logErrors) LogLine(logText::huntNotReceived, SystemError{errno});
        return -1;
    }
    if (answer == nullptr) {
        huntCache.try_emplace(destination, 0);
        if (logErrors) LogLine(logText::huntNotAnswered);
        return -1;
    }

    const LinxSpid spid = linx_sender(linx, &answer);
    linx_free_buf(linx, &answer);
    Remember(destination, spid);
    return 0;
}

inline LinxIpc::Lookup LinxIpc::Find(const std::string& destination, bool logErrors, HuntCache::iterator& entry) {
    entry = lastDestination;
    const bool known = entry != huntCache.end() && SameName(entry->first, destination) && entry->second != 0;
    return known ? Lookup::found : FindOrHunt(destination, logErrors, entry);
}

/// Finds the entry of `destination`, hunting for it when there is none. An entry that was hunted for just now is
/// taken as it is.
LinxIpc::Lookup LinxIpc::FindOrHunt(const std::string& destination, bool logErrors, HuntCache::iterator& entry) {
    entry = lastDestination = huntCache.find(destination);
    if (entry != huntCache.end()) return entry->second != 0 ? Lookup::found : Lookup::negative;
    if (ResolveDestination(destination, logErrors) != 0) return Lookup::unresolved;
    entry = huntCache.find(destination);
    return Lookup::found;
}

/// Takes the entry out of the cache, so that the next send hunts again. The node keeps the name alive.
LinxIpc::HuntCache::node_type LinxIpc::Forget(HuntCache::iterator entry) {
    lastDestination = huntCache.end();
    return huntCache.extract(entry);
}

const std::string& LinxIpc::MessageOriginator(int& notHunted) {
    const std::string& originator = rxMessage.GetSender();
    const auto cached = huntCache.find(originator);
    notHunted = cached == huntCache.end() ? 1 : 0;
    return notHunted != 0 ? originator : cached->first;
}

int LinxIpc::Attach(const char* peer, unsigned type) {
    if (linx == nullptr) {
        LogLine(logText::attachUninitialized);
        return -1;
    }
    HuntCache::iterator entry;
    const Lookup lookup = Find(peer, true, entry);
    if (lookup == Lookup::unresolved) LogLine(logText::attachUnresolved);
    if (lookup != Lookup::found) return -1;

    LinxSignal* notice = linx_alloc(linx, numberSize, type);
    attachFailed = linx_attach(linx, &notice, entry->second) == 0 ? 1 : 0;
    if (attachFailed == 0) return 0;
    LogLine(logText::attachRefused);
    return errno;
}

int LinxIpc::Notify(const std::string& destination, IpcMessage& msg, bool logErrors) {
    if (linx == nullptr) {
        LogLine(logText::notifyUninitialized);
        return -1;
    }
    const std::uint32_t size = msg.Length() + numberSize;
    HuntCache::iterator entry;
    int result = 0;
    const Attempt attempt = AttemptNotify(destination, msg, size, logErrors, entry, result);
    return attempt == Attempt::failed ? RetryNotify(destination, msg, size, logErrors, entry) : result;
}

/// Looks `destination` up and sends a signal of `size` bytes. When it does not come to sending, `result` is that of
/// Notify.
inline LinxIpc::Attempt LinxIpc::AttemptNotify(const std::string& destination, IpcMessage& msg, std::uint32_t size,
                                               bool logErrors, HuntCache::iterator& entry, int& result) {
    const Lookup lookup = Find(destination, logErrors, entry);
    if (lookup != Lookup::found) {
        result = -1;
        if (!logErrors) return Attempt::hopeless;
        if (lookup == Lookup::unresolved) {
            LogLine(logText::notifyUnresolved, destination);
        } else {
            LogLine(logText::notifyAbsent);
        }
        return Attempt::hopeless;
    }
    Held<LinxSignal> signal(linx_alloc(linx, size, msg.MsgType()), this);
    if (signal.Get() == nullptr) {
        LogLine(logText::notifyNoSignal, SystemError{errno});
        result = errno;
        return Attempt::hopeless;
    }
    signal.Get()->number = msg.MsgType();
    std::copy_n(msg.DataPtr(), size - numberSize, Payload(signal.Get()));
    LinxSignal* filled = signal.LetGo();  // LINX takes it, whatever becomes of the send
    return linx_send(linx, &filled, entry->second) != -1 ? Attempt::sent : Attempt::failed;
}

/// Goes on after the first attempt, which failed with `entry`.
int LinxIpc::RetryNotify(const std::string& destination, IpcMessage& msg, std::uint32_t size, bool logErrors,
                         HuntCache::iterator entry) {
    HuntCache::node_type forgotten;  // `destination` may be the key of the entry that the first failure removes
    for (unsigned attemptsLeft = maxAttempts - 1;; --attemptsLeft) {
        HuntCache::node_type node = Forget(entry);
        if (forgotten.empty()) forgotten = std::move(node);
        if (logErrors) LogFailedSend(attemptsLeft, destination, size);
        if (attemptsLeft == 0) return 0;  // callers rely on it: only the log tells that the last attempt failed
        int result = 0;
        const Attempt attempt = AttemptNotify(destination, msg, size, logErrors, entry, result);
        if (attempt == Attempt::failed) continue;
        if (attempt == Attempt::sent) {
            LogLine(logText::notifySentAfterRetries, maxAttempts - attemptsLeft);
        }
        return result;
    }
}

int LinxIpc::Request(const std::string& destination, IpcMessage& message, unsigned replyType, int timeout,
                     IpcMessage* reply) {
    if (linx == nullptr) {
        LogLine(logText::requestUninitialized);
        return -1;
    }
    const std::string peer = destination;  // may be a name of our own, which sending can remove
    const int sent = Notify(peer, message, true);
    if (sent != 0) {
        LogLine(logText::requestNotSent, sent);
        return sent;
    }
    if (replyType == 0) return 0;
    const int received = Await(timeout, replyType, peer, reply);
    if (received != 0) LogLine(logText::requestNotAnswered, received);
    return received;
}

int LinxIpc::AsyncRequest(const std::string& destination, IpcMessage& message, unsigned replyType, int timeout,
                          IpcMessage* reply) {
    if (linx == nullptr) {
        LogLine(logText::asyncRequestUninitialized);
        return -1;
    }
    const IpcMessage& inspected = reply != nullptr ? *reply : rxMessage;
    const int sent = Notify(destination, message, true);
    if (sent != 0 || replyType == 0) return sent;

    unsigned start = DiffTime::CalcInitialTimeout(timeout);
    int received = Receive(timeout, 0, emptyString, reply);
    while (received == 0 && inspected.MsgType() != replyType) {
        LogLine(logText::asyncRequestGoesOn);
        const int timeLeft = DiffTime::ReCalcTimeout(start);
        start = DiffTime::CalcInitialTimeout(timeLeft);
        received = Receive(timeLeft, 0, emptyString, reply);
    }
    return received;
}

int LinxIpc::EnableTimer(int timeout, unsigned signalNumber) {
    if (linx == nullptr) {
        LogLine(logText::timerUninitialized);
        return -1;
    }
    const auto milliseconds = static_cast<std::uint32_t>(timeout);
    if (signalNumber != 0) {
        LinxSignal* signal = linx_alloc(linx, numberSize, signalNumber);
        if (signal == nullptr) {
            LogLine(logText::timerNoSignal, SystemError{errno});
            return errno;
        }
        timerRef = linx_request_tmo(linx, milliseconds, &signal);
    } else {
        timerRef = linx_request_tmo(linx, milliseconds, nullptr);
    }
    if (timerRef != 0) return 0;
    LogLine(logText::timerRefused, SystemError{errno});
    return errno;
}

int LinxIpc::DisableTimer() {
    return linx_cancel_tmo(linx, &timerRef);
}

int LinxIpc::Relay(RelayMessage& message, const std::string& destination) {
    if (linx == nullptr) {
        LogLine(logText::relayUninitialized);
        return -1;
    }
    if (message.Endpoint() != this) {
        LogLine(logText::relayForeignMessage);
        return -1;
    }
    LinxSignal* signal = message.Sig();
    HuntCache::iterator entry;
    switch (Find(destination, true, entry)) {
        case Lookup::found:
            break;
        case Lookup::unresolved:
            LogLine(logText::relayUnresolved, destination);
            return -1;
        case Lookup::negative:
            LogLine(logText::relayAbsent);
            return -1;
    }
    const bool failed = linx_send(linx, &signal, entry->second) == -1;
    const SystemError error{errno};
    message.Deallocate();  // before the log can fail: LINX has taken the signal
    if (failed) {
        Forget(entry);
        LogLine(logText::relayNotSent, error);
    }
    return 0;
}
