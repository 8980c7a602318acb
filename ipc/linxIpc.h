// SPDX-License-Identifier: MIT
#ifndef LINXIPC_IPC_LINXIPC_H
#define LINXIPC_IPC_LINXIPC_H

#include <cstdint>
#include <map>
#include <string>

#include "platform/FileDescriptor.h"
#include "platform/Watchdog.h"
#include "platform/export.h"
#include "platform/linx.h"

class LinxIpc;

/// A message to send or to receive into: a type, the name of its sender, and a payload in a heap buffer of its own. A
/// message belongs to one thread at a time. Nothing here logs, and nothing throws except `SetSender`.
class LINXIPC_API IpcMessage {
public:
    /// An empty message of type 0, without a sender.
    IpcMessage() = default;
    IpcMessage(const IpcMessage&) = delete;
    IpcMessage& operator=(const IpcMessage&) = delete;

    /// Frees the payload.
    virtual ~IpcMessage();

    /// Prepares the message to hold `size` payload bytes of type `msgType`, copied from `source` unless that is null;
    /// without a source the bytes are left as they are. A buffer that is large enough is reused. The next `Fill`
    /// starts at the beginning. Returns 0; EMSGSIZE when `size` exceeds 65532; ENOMEM. On failure the length is 0;
    /// the type is set in any case.
    virtual int Allocate(unsigned msgType, unsigned size, char* source);

    /// Appends `count` bytes from `src`. Returns 0, or ENOMEM when they would run past the length given to the last
    /// `Allocate`; then nothing is written.
    virtual int Fill(const char* src, unsigned count);

    /// The payload, null when there is none. It belongs to the message and may be written up to `Length()` bytes; the
    /// next `Allocate` may move it.
    virtual char* DataPtr();

    /// The number of payload bytes.
    unsigned Length() const { return length; }

    /// The message type, which is the number of the signal that carries the message.
    unsigned MsgType() const { return type; }

    /// The name of the endpoint that sent the message; empty in a message that was not received. The reference is
    /// valid as long as the message; the text changes when the message is received into again.
    const std::string& GetSender() const { return sender; }

    /// Sets the sender's name. The receiving endpoint does so; sending ignores it. Throws `std::bad_alloc` when there
    /// is no memory for the name, and keeps the previous one.
    void SetSender(const std::string& name) { sender = name; }

protected:
    std::uint32_t type = 0;      ///< what `MsgType` returns
    std::string sender;          ///< what `GetSender` returns
    char* data = nullptr;        ///< the payload, or null
    std::uint32_t length = 0;    ///< what `Length` returns
    std::uint32_t capacity = 0;  ///< the bytes that there is room for
    std::uint32_t fillPos = 0;   ///< where the next `Fill` begins

private:
    int Enlarge(unsigned size);
};

/// A message whose payload lies in a LINX signal, so that a received signal can be passed on without a copy. It
/// belongs to the thread of the endpoint that owns it, and must not outlive that endpoint. Nothing here logs, and
/// nothing throws except `SetSender`.
class LINXIPC_API RelayMessage : public IpcMessage {
public:
    /// An empty message whose signals belong to the handle of `endpoint`.
    explicit RelayMessage(LinxIpc* endpoint);

    /// Frees the signal that is still held, as long as the endpoint has its handle.
    ~RelayMessage() override;

    /// Takes over the signal `buffer` (number word first, then `size` payload bytes); nothing is copied, and the
    /// number word is not written. A null `buffer` asks LINX for a new signal with the number `msgType`. A signal
    /// held before is freed, unless `size` is 0: then the message forgets it, and it stays allocated until the
    /// endpoint closes. Returns 0, or 1 when LINX has no signal to give.
    int Allocate(unsigned msgType, unsigned size, char* buffer) override;

    /// As in `IpcMessage`; ENOMEM also when no signal is held.
    int Fill(const char* src, unsigned count) override;

    /// Forgets the signal without freeing it, once LINX has taken it over. Type and length keep their values.
    void Deallocate();

    /// The endpoint that owns the signals of this message.
    LinxIpc* Endpoint() const { return owner; }

    /// The signal, null when none is held. It belongs to the message.
    LinxSignal* Sig() const { return signal; }

    /// Sets the number of the held signal, if there is one: the type under which it is relayed. `MsgType()` still
    /// returns the type given to the last `Allocate`.
    void SetType(unsigned number);

private:
    LinxSignal* signal = nullptr;
    LinxIpc* owner;
    std::uint32_t signalSize = 0;
};

/// A handler and the user data that it is called with, which is not owned.
struct Callback {
    void (*function)(LinxIpc* endpoint, void* userData) = nullptr;  ///< null where there is no handler
    void* userData = nullptr;                                       ///< its second argument
};

/// A LINX endpoint: sends messages to endpoints by name, and receives and dispatches those that arrive.
///
/// Threads: an endpoint and its messages belong to one thread. Nothing is locked and no thread is started. Different
/// threads may use different endpoints at once.
///
/// Handlers run inside `Receive`, `Request` and `AsyncRequest`. They may send, receive, register and deregister on
/// their endpoint, but must not destroy it: the call that runs them still needs it.
///
/// Results: 0 success; -1 when the endpoint cannot serve the call; otherwise an errno value. Failures are logged.
///
/// Exceptions: what a handler throws passes through the call that runs it, and so does `std::bad_alloc` when any call
/// runs out of memory. The endpoint remains usable: nothing is leaked, and nothing is half remembered. The signal at
/// hand is freed, except that of a relay handler, which stays in `relayMessage`.
///
/// A name that is passed by reference may be one of the endpoint's own, such as the one `MessageOriginator` returns.
class LINXIPC_API LinxIpc : public FileDescriptor {
private:
    /// Deliberately set and never read: for code outside the library, part of the object's layout.
    [[maybe_unused]] int descriptorKind = 8;
    std::string name;

public:
    /// The message that a receive fills when its caller passes none: handlers find here what they were called for.
    IpcMessage rxMessage;

    /// The message that a relay handler was called for. A signal that the handler does not pass on stays here. It is
    /// freed when the next one with a payload takes its place, at the latest with the handle.
    RelayMessage relayMessage;

    /// Stands for no particular peer.
    static const std::string emptyString;

    /// An endpoint with the name `endpointName`. Nothing is opened before `Init`, but handlers may be registered.
    explicit LinxIpc(const std::string& endpointName);

    /// The same; a null pointer throws the `std::logic_error` of `std::string`.
    explicit LinxIpc(const char* endpointName);

    LinxIpc(const LinxIpc&) = delete;
    LinxIpc& operator=(const LinxIpc&) = delete;

    /// Closes the handle, then the descriptor.
    ~LinxIpc() override;

    /// What both constructors do last: sets the name, and forgets handle, hunted names, handlers and default handler.
    /// It closes nothing, and leaves relay handlers and everything else as they are, so it is not for an endpoint in
    /// use.
    void CommonInit(const std::string& endpointName);

    /// Opens the endpoint under its name; `Descriptor()` is then readable while a signal is waiting. Returns 0; -1
    /// when it is already open; the errno of `linx_open`, after which `Init` may be tried again.
    int Init();

    /// The LINX handle, null before `Init`. It belongs to the endpoint.
    LINX* Linx() const { return linx; }

    /// Not supported, as the endpoint is no plain descriptor: logs that and returns 1.
    int Send(const void* bytes, unsigned size, unsigned& sent) override;

    /// As `Send`.
    int Receive(void* bytes, unsigned size, unsigned& received) override;

    /// As `Send`.
    int Blocking(bool on) override;

    /// Has `function` called with `userData` for every dispatched signal of the number `type`, in place of any
    /// earlier handler of that number. The function must not be null.
    void RegisterHandler(unsigned type, void (*function)(LinxIpc*, void*), void* userData);

    /// The same for signals that are handed over whole, in `relayMessage`. A relay handler gets every received signal
    /// of its number (hunt signals have no handlers) before anything else is decided about it: even the reply that a
    /// `Request` awaits, a shutdown request, the notice of a death and `e_WaitGoesOnSignal`. The receive then returns
    /// 0, and the message that it was to fill is unchanged except for the sender.
    void RegisterRelayHandler(unsigned type, void (*function)(LinxIpc*, void*), void* userData);

    /// The handler of shutdown requests, `e_ShutdownSignal`.
    void RegisterShutdown(void (*function)(LinxIpc*, void*), void* userData);

    /// The handler of the notices that a process died, `e_ProcessDiedSignal`; the payload begins with its
    /// `e_Process`.
    void RegisterProcessDied(void (*function)(LinxIpc*, void*), void* userData);

    /// The handler of signals that have none of their own. Without it these are dropped silently.
    void RegisterDefault(void (*function)(LinxIpc*, void*), void* userData);

    /// Removes the relay handler and the handler of `type`, where there are any.
    void DeregisterHandler(unsigned type);
    void DeregisterShutdown();     ///< Removes the handler of shutdown requests.
    void DeregisterProcessDied();  ///< Removes the handler of notices that a process died.
    void DeregisterDefault();      ///< Removes the handler of signals that have none of their own.

    /// Receives one message. Waits for it up to `timeout` milliseconds, or without limit when that is negative.
    ///
    /// With `type` 0 any signal is taken and dispatched: handed to its relay handler, or else copied and given to its
    /// handler, or else to the default handler. Otherwise only three kinds of signals are taken, from any sender:
    /// those of the number `type` and notices that a process died, which are not dispatched, and shutdown requests,
    /// which are. All others stay queued.
    ///
    /// Some signals (ipc/ReservedSignal.h) have a meaning of their own, unless a relay handler takes them:
    /// - `e_ShutdownSignal` ends the call with ESHUTDOWN, after its handler has run.
    /// - `e_ProcessDiedSignal` ends it with EHOSTUNREACH when the directory's name for the process is `from`, the
    ///   awaited peer (`emptyString` for none). Otherwise the wait goes on. Nothing else here tells of the peer's
    ///   death: a peer that is not in the directory is awaited in vain, and the notice that `Attach` asked for is a
    ///   signal like any other.
    /// - `e_WaitGoesOnSignal` never ends the call, whatever is awaited.
    /// - `LINX_OS_HUNT_SIG`, the late answer to a search, is taken when `type` is 0 or that number. It has no handler
    ///   and ends the call with 0 and an empty message. Its signal is not freed: it lives as long as the handle.
    ///
    /// The message is copied to `msg`, or to `rxMessage` when that is null. Returns 0; -1 before `Init`; ESHUTDOWN
    /// after a shutdown request; EHOSTUNREACH when the peer has died; ETIMEDOUT; the errno of the receive; the result
    /// of `IpcMessage::Allocate` when the message could not be copied (it was dispatched all the same).
    int Receive(int timeout, unsigned type, const std::string& from, IpcMessage* msg);

    /// One turn of a main loop: receives and dispatches any signal, and pets the watchdog after a message or a quiet
    /// time-out. Returns the watchdog's result, or the receive's if that ended otherwise and nothing was petted.
    int Receive(Watchdog& watchdog, int timeout);

    /// Searches for the endpoint `destination`, for up to 100 ms, and remembers what it finds. An endpoint that was
    /// not found is remembered as absent: no call searches for it again or sends to it until a signal from it has
    /// been received, which may be the late answer to the search. A known endpoint stays as it is remembered,
    /// whatever the search finds. Returns 0 when the search was answered, else -1. `logErrors` only switches the log
    /// lines about failures.
    int ResolveDestination(const std::string& destination, bool logErrors);

    /// The sender of the message last received into `rxMessage`. `notHunted` becomes 0 when that name is remembered,
    /// even as absent, and 1 when it is not. The reference is valid until the next call on this endpoint.
    const std::string& MessageOriginator(int& notHunted);

    /// Asks for a signal of the number `type`, without payload, from `peer` when it ends. Every call asks for one
    /// more; there is no way to take it back. Waits up to 100 ms when the peer is not known yet. Returns 0; -1 before
    /// `Init` or when the peer cannot be found; the errno of `linx_attach`. A null `peer` throws the
    /// `std::logic_error` of `std::string`.
    ///
    /// After a peer has ended and opened again, the endpoint still remembers the one that ended, and the notice comes
    /// at once. Send the peer something first, or receive something from it: both make the endpoint remember the new
    /// one.
    int Attach(const char* peer, unsigned type);

    /// Sends `msg` to the endpoint `destination`. After a failed send the destination is searched for anew, for up to
    /// 100 ms, and the send is repeated, up to 32 attempts in all. Returns 0, even when the last attempt failed,
    /// which only the log tells; -1 before `Init`, or when the destination cannot be found or is remembered as
    /// absent; the errno of `linx_alloc`. `logErrors` only switches the log lines about failed searches and sends.
    int Notify(const std::string& destination, IpcMessage& msg, bool logErrors);

    /// Sends `message` and waits up to `timeout` milliseconds (negative: without limit) for a signal of the number
    /// `replyType`, from any sender, which it receives into `reply` or, when that is null, `rxMessage`. Everything
    /// else stays queued except what `Receive` always takes; as there, a notice that `destination` died ends the
    /// wait. With `replyType` 0 no reply is awaited. Returns 0, -1 before `Init`, or the result of the `Notify` or
    /// `Receive` that failed.
    ///
    /// A reply that arrives after its `Request` has given up is taken for the answer to the next one with the same
    /// `replyType`: a wrong value, with result 0. Where that may happen, give each request a reply type of its own,
    /// or put a number into the request that the reply repeats, and receive again until the number is the right one.
    int Request(const std::string& destination, IpcMessage& message, unsigned replyType, int timeout,
                IpcMessage* reply);

    /// The same, but everything that arrives meanwhile is dispatched, the reply included, and no death ends the wait.
    /// It ends when the message (`reply` or `rxMessage`) has the type `replyType` after a signal was handled. Relay
    /// handlers leave the message alone, so it should have another type beforehand; and handlers should not receive
    /// into it.
    int AsyncRequest(const std::string& destination, IpcMessage& message, unsigned replyType, int timeout,
                     IpcMessage* reply);

    /// Asks for a signal of the number `signalNumber` (0: LINX's own time-out signal), without payload, after
    /// `timeout` milliseconds, which are taken as unsigned: -1 is 49.7 days. Earlier time-outs stay pending. Returns
    /// 0; -1 before `Init`; the errno of LINX.
    int EnableTimer(int timeout, unsigned signalNumber);

    /// Cancels the time-out that was asked for last, and no earlier one. Returns the result of `linx_cancel_tmo`.
    int DisableTimer();

    /// Sends the signal in `message` on to `destination`, without a copy; its sender is then this endpoint. Waits up
    /// to 100 ms when the destination is not known yet. Returns 0 when the signal has left the message, even when the
    /// send failed, which only the log tells; -1 before `Init`, for another endpoint's message and when the
    /// destination cannot be found: then the message keeps its signal.
    int Relay(RelayMessage& message, const std::string& destination);

private:
    using HuntCache = std::map<std::string, unsigned>;
    class SignalWait;
    struct Arrival;

    /// What is known of a destination: where it is; that a hunt for it just now was in vain; that an earlier one was.
    enum class Lookup { found, notFound, knownAbsent };
    struct Destination {
        Lookup lookup;
        LinxSpid spid;
    };

    int HandleArrivals(const std::string& peer, int timeout, unsigned type, IpcMessage* msg);
    int HandleArrivalsWithCopy(const std::string& from, int timeout, unsigned type, IpcMessage* msg);
    Arrival Await(SignalWait& wait) const;
    void NameSender(const Arrival& arrival, IpcMessage& message);
    const std::string& LearnSenderName(LinxSpid spid);
    HuntCache::iterator Remember(const std::string& peer, LinxSpid spid);
    int TakeHuntAnswer(Arrival& arrival, IpcMessage& message);
    int HandToRelay(const Callback& handler, LinxSignal* signal, std::uint32_t size, const std::string& sender);
    int CopyAndDispatch(const Arrival& arrival, unsigned type, IpcMessage& message);

    Destination Find(const std::string& peer, bool logErrors);
    Destination FindOrHunt(const std::string& peer, bool logErrors);
    HuntCache::node_type Forget(const std::string& peer);

    int TrySend(const std::string& destination, IpcMessage& msg, std::uint32_t size, bool logErrors);
    int RetryNotify(const std::string& destination, IpcMessage& msg, std::uint32_t size, bool logErrors);

    HuntCache huntCache;                          // 0 stands for a name that was hunted in vain
    std::map<unsigned, std::string> senderNames;  // never changed once entered, "unknown" included
    LINX* linx = nullptr;
    int attachFailed = 0;  // whether the last `linx_attach` failed; nothing in the library reads it
    LinxRef timerRef = 0;  // the time-out that was asked for last
    std::map<unsigned, Callback> handlers;
    std::map<unsigned, Callback> relayHandlers;
    Callback defaultHandler;

    /// The entry of `huntCache` that was looked up last, or its end. Always valid: removing an entry sets it to the
    /// end. Most messages go where the previous one went, and then need no look-up: that would be a quarter of the
    /// instructions of a `Notify`, and more where many names are known.
    HuntCache::iterator lastDestination = huntCache.end();
};

#endif
