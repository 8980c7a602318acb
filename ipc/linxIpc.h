// SPDX-License-Identifier: MIT
#ifndef LINXIPC_IPC_LINXIPC_H
#define LINXIPC_IPC_LINXIPC_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "platform/FileDescriptor.h"
#include "platform/Watchdog.h"
#include "platform/export.h"
#include "platform/linx.h"

class LinxIpc;

/// A message to send or to receive into: a type, the name of its sender and a payload on the heap that it owns. It
/// belongs to one thread at a time. Nothing here logs, and nothing throws but `SetSender`.
class LINXIPC_API IpcMessage {
public:
    /// An empty message of type 0, without a sender.
    IpcMessage() = default;
    IpcMessage(const IpcMessage&) = delete;
    IpcMessage& operator=(const IpcMessage&) = delete;

    /// Frees the payload.
    virtual ~IpcMessage();

    /// Prepares the message to hold `size` payload bytes of type `msgType`, copied from `source` unless that is null;
    /// without a source the bytes are left as they are. A buffer that is large enough is used again. Filling starts
    /// anew. Returns 0; EMSGSIZE when `size` exceeds 65532; ENOMEM. On failure the length is 0; the type is taken
    /// over in any case.
    virtual int Allocate(unsigned msgType, unsigned size, char* source);

    /// Appends `count` bytes from `src`. Returns 0, or ENOMEM when they would run past the length that was asked for
    /// in the last `Allocate`; nothing is written then.
    virtual int Fill(const char* src, unsigned count);

    /// The payload, null when there is none. It stays the message's and may be written up to `Length()` bytes; the
    /// next `Allocate` may move it.
    virtual char* DataPtr();

    /// The number of payload bytes.
    unsigned Length() const { return length; }

    /// The message type, which is the number of the signal that carries the message.
    unsigned MsgType() const { return type; }

    /// The name of the endpoint that sent the message; empty in a message that was not received. The reference lives
    /// as long as the message, the text until the message is received into again.
    const std::string& GetSender() const { return sender; }

    /// Names the sender. The receiving endpoint does so; sending ignores it. Throws `std::bad_alloc` when there is no
    /// memory for the name, and keeps the one before.
    void SetSender(const std::string& name) { sender = name; }

protected:
    std::uint32_t type = 0;
    std::string sender;
    char* data = nullptr;
    std::uint32_t length = 0;
    std::uint32_t capacity = 0;
    std::uint32_t fillPos = 0;

private:
    int Enlarge(unsigned size);
};

/// A message whose payload lies in a LINX signal, so that a received signal is passed on without a copy. It belongs
/// to the thread of the endpoint that owns it, and must not outlive that endpoint. Nothing here logs, and nothing
/// throws but `SetSender`.
class LINXIPC_API RelayMessage : public IpcMessage {
public:
    /// An empty message whose signals belong to the handle of `endpoint`.
    explicit RelayMessage(LinxIpc* endpoint);

    /// Frees the signal that is still held, as long as the endpoint has its handle.
    ~RelayMessage() override;

    /// Holds the signal `buffer` (number word first, then `size` payload bytes), which becomes the message's; nothing
    /// is copied and the number word is not written. A null `buffer` asks for a new signal with the number `msgType`.
    /// A signal held before is freed, unless `size` is 0: then it is let go of. Returns 0, or 1 when LINX has no
    /// signal to give.
    int Allocate(unsigned msgType, unsigned size, char* buffer) override;

    /// As in `IpcMessage`; ENOMEM also when no signal is held.
    int Fill(const char* src, unsigned count) override;

    /// Forgets the signal without freeing it, once LINX has taken it over. Type and length stay.
    void Deallocate();

    /// The endpoint that owns the signals of this message.
    LinxIpc* Endpoint() const { return owner; }

    /// The signal, null when none is held. It stays the message's.
    LinxSignal* Sig() const { return signal; }

    /// Writes the number word of the held signal, if there is one: the type under which it is relayed. `MsgType()`
    /// goes on giving the type of the last `Allocate`.
    void SetType(unsigned number);

private:
    LinxSignal* signal = nullptr;
    LinxIpc* owner;
    std::uint32_t signalSize = 0;
};

/// A handler and what it is called with. The user data is not owned.
struct Callback {
    void (*function)(LinxIpc* endpoint, void* userData) = nullptr;
    void* userData = nullptr;
};

/// A LINX endpoint: sends messages to endpoints by name, receives and dispatches those that arrive.
///
/// Threads: an endpoint and its messages belong to one thread. Nothing is locked and no thread is started. Different
/// endpoints may be used by different threads at once.
///
/// Handlers run inside `Receive`, `Request` and `AsyncRequest`. They may send, receive, register and deregister on
/// their endpoint, but must not destroy it: the call that they run in goes on using it.
///
/// Results: 0 success; -1 when the endpoint cannot serve the call; otherwise an errno value. Failures are logged.
///
/// Exceptions: what a handler throws passes through the call that runs it, and so does the `std::bad_alloc` of any
/// call that memory runs out in. The endpoint can be used on: nothing is leaked, and nothing half remembered. The
/// signal at hand is freed, but that of a relay handler, which stays in `relayMessage`.
///
/// Names that are passed by reference may be the endpoint's own (that of `MessageOriginator`, for example).
class LINXIPC_API LinxIpc : public FileDescriptor {
private:
    [[maybe_unused]] int descriptorKind = 8;
    std::string name;

public:
    /// What a receive without a message of the caller's fills. A handler finds here what it was called for.
    IpcMessage rxMessage;

    /// What a relay handler was called for. A signal that the handler does not pass on stays here and is freed when
    /// the next one with a payload takes its place, at the latest with the handle.
    RelayMessage relayMessage;

    /// Stands for no particular peer.
    static const std::string emptyString;

    /// An endpoint that will be called `endpointName`. Nothing is opened before `Init`; handlers may be registered.
    explicit LinxIpc(const std::string& endpointName);

    /// The same; a null pointer throws the `std::logic_error` of `std::string`.
    explicit LinxIpc(const char* endpointName);

    LinxIpc(const LinxIpc&) = delete;
    LinxIpc& operator=(const LinxIpc&) = delete;

    /// Closes the handle, then the descriptor.
    ~LinxIpc() override;

    /// The constructors' common end: takes the name, and starts without handle, cached spids, handlers and default
    /// handler. It closes nothing, and leaves relay handlers and everything else: not for an endpoint in use.
    void CommonInit(const std::string& endpointName);

    /// Opens the endpoint under its name; `Descriptor()` is then readable while a signal waits. Returns 0; -1 when it
    /// is open already; the errno of `linx_open`, after which `Init` may be tried again.
    int Init();

    /// The LINX handle, null before `Init`. It stays the endpoint's.
    LINX* Linx() const { return linx; }

    /// Not supported: logs and returns 1, as do the other two operations on plain descriptors.
    int Send(const void* bytes, unsigned size, unsigned& sent) override;
    int Receive(void* bytes, unsigned size, unsigned& received) override;
    int Blocking(bool on) override;

    /// Has `function` called with `userData` for every dispatched signal of the number `type`, instead of any earlier
    /// handler of that number. The function must not be null.
    void RegisterHandler(unsigned type, void (*function)(LinxIpc*, void*), void* userData);

    /// The same for signals that are handed over whole, in `relayMessage`. A relay handler gets every signal of its
    /// number that is received (hunt signals have no handlers), before anything else is looked at: also the reply
    /// that a `Request` awaits, a shutdown request, the notice of a death and `e_WaitGoesOnSignal`. The receive then
    /// returns 0, and the message that it was to fill is as it was before, but for the sender.
    void RegisterRelayHandler(unsigned type, void (*function)(LinxIpc*, void*), void* userData);

    /// The handler of shutdown requests, `e_ShutdownSignal`.
    void RegisterShutdown(void (*function)(LinxIpc*, void*), void* userData);

    /// The handler of the notices that a process died, `e_ProcessDiedSignal`; the payload begins with its
    /// `e_Process`.
    void RegisterProcessDied(void (*function)(LinxIpc*, void*), void* userData);

    /// The handler of signals that have none. Without it these are dropped, and nothing says so.
    void RegisterDefault(void (*function)(LinxIpc*, void*), void* userData);

    /// Removes the relay handler and the handler of `type`, where there are any.
    void DeregisterHandler(unsigned type);
    void DeregisterShutdown();
    void DeregisterProcessDied();
    void DeregisterDefault();

    /// Receives one message and waits for it up to `timeout` milliseconds, without limit when that is negative.
    ///
    /// With `type` 0 any signal is taken and dispatched: to its relay handler, else copied and given to its handler,
    /// else to the default handler. Otherwise the signals of that number are taken, from whomever, and not
    /// dispatched, besides shutdown requests, which are, and notices that a process died, which are not. All others
    /// stay queued.
    ///
    /// Some signals (ipc/ReservedSignal.h) mean something themselves, unless a relay handler takes them:
    /// - `e_ShutdownSignal` ends the call with ESHUTDOWN, after its handler.
    /// - `e_ProcessDiedSignal` ends it with EHOSTUNREACH when the directory's name for the process is `from`, the
    ///   awaited peer (`emptyString` for none). Otherwise the wait goes on. Nothing else tells of the peer's death
    ///   here: one that is not in the directory is awaited in vain, and the notice that `Attach` asked for is a
    ///   signal like any other.
    /// - `e_WaitGoesOnSignal` never ends it, whatever is awaited.
    /// - `LINX_OS_HUNT_SIG`, the late answer to a search, has no handler, and ends it with 0 and an empty message,
    ///   where it is taken: when `type` is 0 or that number.
    ///
    /// The message is copied to `msg`, or to `rxMessage` when that is null. Returns 0; -1 before `Init`; ESHUTDOWN
    /// after a shutdown request; EHOSTUNREACH when the peer has died; ETIMEDOUT; the errno of the receive; the result
    /// of `IpcMessage::Allocate` when the message could not be copied, although it was dispatched.
    int Receive(int timeout, unsigned type, const std::string& from, IpcMessage* msg);

    /// One turn of a main loop: receives and dispatches any signal, and pets the watchdog after a message or a quiet
    /// time-out. Returns what the watchdog gave, or the result of the receive that kept it from being petted.
    int Receive(Watchdog& watchdog, int timeout);

    /// Finds the endpoint `destination` and remembers it; waits up to 100 ms. One that was not found is remembered as
    /// absent: no call seeks it again or sends to it until the first signal from it is received, be it the late
    /// answer to the search. Returns 0 when it was found now, else -1. One that is known stays as it is remembered.
    /// `logErrors` switches the log lines about failures only.
    int ResolveDestination(const std::string& destination, bool logErrors);

    /// The sender of the message last received into `rxMessage`; `notHunted` becomes 0 when that name is among the
    /// remembered ones, found or not, else 1. The reference holds until the next call on this endpoint.
    const std::string& MessageOriginator(int& notHunted);

    /// Asks for a signal of the number `type`, without payload, from `peer` when it ends. Every call asks for one
    /// more; there is no way to take it back. Waits up to 100 ms when the peer is not known yet. Returns 0; -1 before
    /// `Init` or when the peer cannot be found; the errno of `linx_attach`. A null `peer` throws the
    /// `std::logic_error` of `std::string`.
    ///
    /// One that has ended and opened again is supervised as it is remembered, which is as the one that has ended, and
    /// the notice comes at once. Send it something first, which finds it anew, or receive something from it.
    int Attach(const char* peer, unsigned type);

    /// Sends `msg` to the endpoint `destination`. A failed send seeks the destination anew and is repeated, up to 32
    /// attempts. Each search waits up to 100 ms. Returns 0, also when the last attempt failed, which only the log
    /// tells; -1 before `Init` or when the destination cannot be found or is remembered as absent; the errno of
    /// `linx_alloc`. `logErrors` switches the log lines about failed searches and sends only.
    int Notify(const std::string& destination, IpcMessage& msg, bool logErrors);

    /// Sends `message` and waits up to `timeout` milliseconds (negative: without limit) for a signal of the number
    /// `replyType`, from whomever, into `reply` or, when that is null, `rxMessage`. Everything else stays queued,
    /// besides what `Receive` takes always; a notice that `destination` died ends the wait, as there. With
    /// `replyType` 0 no reply is awaited. Returns 0, -1 before `Init`, or the result of the `Notify` or `Receive`
    /// that failed.
    ///
    /// A reply that comes after its `Request` has given up is taken for the answer to the next one with the same
    /// `replyType`: a wrong value, with result 0. Where that may happen use a reply type of its own for each request,
    /// or put a number into the request that the reply repeats, and receive again until the number is the right one.
    int Request(const std::string& destination, IpcMessage& message, unsigned replyType, int timeout,
                IpcMessage* reply);

    /// The same, but everything that arrives meanwhile, the reply included, is dispatched, and no death ends the
    /// wait. What ends it is that the message, `reply` or `rxMessage`, has the type `replyType` when a signal was
    /// handled. So it should have another type beforehand, for relay handlers leave it alone, and handlers should not
    /// receive into it.
    int AsyncRequest(const std::string& destination, IpcMessage& message, unsigned replyType, int timeout,
                     IpcMessage* reply);

    /// Asks for a signal of the number `signalNumber` (0: LINX's own time-out signal), without payload, after
    /// `timeout` milliseconds, which are counted without a sign: -1 is 49.7 days. Earlier time-outs stay pending.
    /// Returns 0; -1 before `Init`; the errno of LINX.
    int EnableTimer(int timeout, unsigned signalNumber);

    /// Takes back the time-out that was asked for last. Returns the result of `linx_cancel_tmo`.
    int DisableTimer();

    /// Sends the signal in `message` on to `destination`, without a copy; it arrives from this endpoint. Waits up to
    /// 100 ms when the destination is not known yet. Returns 0 when the signal has left the message, also when
    /// sending failed, which only the log tells; -1 before `Init`, for another endpoint's message and when the
    /// destination cannot be found: the message then keeps its signal.
    int Relay(RelayMessage& message, const std::string& destination);

private:
    using HuntCache = std::map<std::string, unsigned>;
    class SignalWait;
    enum class Lookup { found, unresolved, negative };
    enum class Attempt { sent, failed, hopeless };

    Lookup Find(const std::string& destination, bool logErrors, HuntCache::iterator& entry);
    Lookup FindOrHunt(const std::string& destination, bool logErrors, HuntCache::iterator& entry);
    Attempt AttemptNotify(const std::string& destination, IpcMessage& msg, std::uint32_t size, bool logErrors,
                          HuntCache::iterator& entry, int& result);
    int RetryNotify(const std::string& destination, IpcMessage& msg, std::uint32_t size, bool logErrors,
                    HuntCache::iterator entry);
    HuntCache::node_type Forget(HuntCache::iterator entry);
    HuntCache::iterator Remember(const std::string& peer, LinxSpid spid);
    int Await(int timeout, unsigned type, const std::string& peer, IpcMessage* msg);
    int GoOn(SignalWait& wait, unsigned type, const std::string& peer, IpcMessage& message);
    std::optional<int> TakeNext(SignalWait& wait, unsigned type, const std::string& peer, IpcMessage& message);
    int AwaitPeer(int timeout, unsigned type, const std::string& from, IpcMessage* msg);
    const std::string& NameOfSender(LinxSignal** signal);
    const std::string& LearnSenderName(LinxSpid spid);
    void Dispatch(unsigned number);

    HuntCache huntCache;  // 0 stands for a name that was hunted in vain
    std::map<unsigned, std::string> senderNames;
    LINX* linx = nullptr;
    int attachFailed = 0;
    LinxRef timerRef = 0;
    std::map<unsigned, Callback> handlers;
    std::map<unsigned, Callback> relayHandlers;
    Callback defaultHandler;

    /// The entry of `huntCache` that was looked up last, or its end. It is always valid: whoever takes entries out
    /// sets it to the end. Most messages go where the one before went, and it spares them the look-up, a quarter of
    /// the instructions of a `Notify` and more where many names are known.
    HuntCache::iterator lastDestination = huntCache.end();
};

#endif
