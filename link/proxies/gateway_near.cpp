// What happens in the domain of a gateway.

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "link/proxies/gateway.h"
#include "link/proxies/numbers.h"

namespace linx::link {
namespace {

/// No proxy may keep the others from being served.
constexpr int mostAtATime = 256;
/// What has not come home is looked for less and less often.
constexpr Time longestLook = std::chrono::milliseconds(128);

}  // namespace

bool Gateway::serve() {
    bool hasDone = false;
    for (const uint64_t number : watch_.readable()) {
        if (number == linkNumber) {
            hasDone = serveLink() || hasDone;
        } else if (number == sessionNumber) {
            hasDone = serveSession() || hasDone;
        } else if (const auto far = far_.find(proxyOf(number)); far != far_.end()) {
            hasDone = pump(far->first, far->second) || hasDone;
        }
    }
    const std::set<LinxSpid> unannounced = unannounced_;
    for (const LinxSpid spid : unannounced) hasDone = introduce(spid) != nullptr || hasDone;
    const std::set<FarId> heldUp = heldUp_;
    for (const FarId id : heldUp) {
        const auto far = far_.find(id);
        if (far != far_.end()) hasDone = pump(id, far->second) || hasDone;
    }
    return hasDone;
}

/// Anybody may send anything to an endpoint: only what a hunter says counts.
bool Gateway::serveLink() {
    bool any = false;
    for (int left = mostAtATime; left != 0; --left) {
        std::optional<Received> signal = link_.receive();
        if (!signal) return any;
        any = true;
        const std::optional<std::string> name = signal->text();
        if (signal->number() == LINX_OS_SOUGHT_SIG && name) seek(*name, signal->sender());
        if (signal->number() == askStatusNumber) tellStatus(signal->sender());
    }
    return any;
}

/// Only to those of this domain: proxies have a slash in their names, and what stands behind them is told nothing.
void Gateway::tellStatus(LinxSpid asker) {
    if (link_.nameOf(asker).find('/') != std::string::npos) return;
    LinxSignal* answer = link_.makeText(statusNumber, textOf(setup_.status()));
    if (answer != nullptr) linx_send(link_.get(), &answer, asker);
}

void Gateway::seek(const std::string& name, LinxSpid hunter) {
    if (!isName(name) || sought_.count(name) != 0) return;
    std::vector<NodeId> passed;
    const auto others = transit_.passed.find(hunter);
    if (others != transit_.passed.end() && others->second.count(setup_.name + '/' + name) != 0) {
        passed = others->second[setup_.name + '/' + name];
    }
    passed.push_back(transit_.node);
    if (passed.size() > mostPassed || !peer_.seek({name, passed})) {
        tally_.refuse("too many");
        return;
    }
    sought_.insert(name);
}

bool Gateway::serveSession() {
    bool any = false;
    for (int left = mostAtATime; left != 0 && session_; --left) {
        std::optional<Received> signal = session_.receive();
        if (!signal) return any;
        any = true;
        const LinxSpid sender = signal->sender();
        const std::optional<std::string> name = signal->text();
        if (signal->number() == foundNumber && name) found(*name, sender);
        if (signal->number() == endedNumber) localEnded(sender);
    }
    return any;
}

void Gateway::hunt(const std::string& name) {
    LinxSignal* answer = session_.makeText(foundNumber, name);
    if (answer == nullptr || linx_hunt(session_.get(), name.c_str(), &answer) == -1) refuse(name, Refused::tooMany);
}

/// The name has to be the sender's: whoever sends such a signal unasked says no more than who it is.
void Gateway::found(const std::string& name, LinxSpid spid) {
    if (standing_.count(name) == 0 || session_.nameOf(spid) != name) return;
    if (introduce(spid) == nullptr && locals_.find(spid) == nullptr) hunt(name);  // it is said where that fails too
}

/// Makes the endpoint known over there. Null when that is not possible now, or its name is not known any more.
Local* Gateway::introduce(LinxSpid spid) {
    Local* local = locals_.find(spid);
    if (local == nullptr) {
        const std::string name = session_.nameOf(spid);
        LinxSignal* notice = linx_alloc(session_.get(), sizeof(LinxSignal), endedNumber);
        if (name.empty() || notice == nullptr || linx_attach(session_.get(), &notice, spid) == 0) return nullptr;
        local = &locals_.add(spid, name);
    }
    Session* const session = peer_.session();
    if (!local->id && session != nullptr) {
        if (const std::optional<OwnId> id = session->announce(local->name)) locals_.number(spid, *id);
    }
    if (local->id) {
        unannounced_.erase(spid);
        return local;
    }
    unannounced_.insert(spid);
    return nullptr;
}

/// All that it had sent lies in the mailboxes of proxies before anything that is sent to these from now on. So a mark
/// is put behind it where the session does not take everything at once.
void Gateway::localEnded(LinxSpid spid) {
    Local* const local = locals_.find(spid);
    if (local == nullptr || local->hasEnded) return;
    local->hasEnded = true;
    for (auto& [id, far] : far_) {
        if (!far.proxy) continue;
        pump(id, far);
        if (far.isDrained) continue;
        LinxSignal* mark = linx_alloc(session_.get(), 2 * sizeof(LinxSignal), markNumber);
        if (mark == nullptr) continue;  // then what it had sent may come to be lost, and is counted
        std::memcpy(mark + 1, &spid, sizeof spid);
        if (linx_send(session_.get(), &mark, far.proxy.spid()) == 0) local->marks.insert(id);
    }
    if (local->marks.empty()) finishEnd(spid, *local);
}

/// The proxy holds nothing any more of what that one had sent.
void Gateway::passed(FarId id, LinxSpid spid) {
    Local* const local = locals_.find(spid);
    if (local != nullptr && local->marks.erase(id) != 0 && local->marks.empty()) finishEnd(spid, *local);
}

/// Whoever takes the name of one that has ended may have sent before the link knew of that end, so the mark lies
/// behind its signal, which in turn waits for the name. All that its predecessor, the one who is still announced by
/// that name, had sent lay before it.
bool Gateway::passedPredecessor(FarId id, LinxSpid sender) {
    const Local* const next = locals_.find(sender);
    if (next == nullptr || next->id) return false;
    const std::string name = next->name;
    for (const LinxSpid spid : locals_.markedIn(id)) {
        const Local* const local = locals_.find(spid);
        if (!local->id || local->name != name) continue;
        passed(id, spid);
        return true;
    }
    return false;
}

void Gateway::finishEnd(LinxSpid spid, const Local& local) {
    const std::string name = local.name;
    if (Session* const session = peer_.session(); session != nullptr && local.id) session->ended(*local.id);
    locals_.remove(spid);
    unannounced_.erase(spid);
    if (standing_.count(name) != 0) hunt(name);
}

/// Sends on what has come to the proxy. Whether there was anything.
bool Gateway::pump(FarId id, Far& far) {
    bool any = false;
    far.isDrained = false;
    for (int left = mostAtATime; left != 0; --left) {
        if (!far.held && !take(id, far)) {
            far.isDrained = true;
            break;
        }
        if (!far.held) {
            any = true;
            continue;
        }
        if (forward(id, far) == Forwarded::later) {
            any = passedPredecessor(id, far.held->signal.sender()) || any;
            heldUp_.insert(id);
            if (far.isWatched) watch_.remove(far.proxy);
            far.isWatched = false;
            return any;
        }
        far.held.reset();
        any = true;
    }
    heldUp_.erase(id);
    if (!far.isWatched) far.isWatched = watch_.add(far.proxy, numberOfProxy(id));
    return any;
}

/// Receives the proxy's next signal, unless it is a mark. Whether there was one.
bool Gateway::take(FarId id, Far& far) {
    std::optional<Received> signal = far.proxy.receive();
    if (!signal) return false;
    if (signal->number() == markNumber && signal->sender() == session_.spid()) {
        LinxSpid spid = 0;
        if (signal->size() == sizeof spid) std::memcpy(&spid, signal->payload(), sizeof spid);
        passed(id, spid);
        return true;
    }
    Bytes payload(signal->payload(), signal->payload() + signal->size());
    far.held.emplace(Held{std::move(*signal), std::move(payload)});
    return true;
}

Gateway::Forwarded Gateway::forward(FarId id, Far& far) {
    Session* const session = peer_.session();
    if (session == nullptr) return Forwarded::later;  // its end is about to be told
    const LinxSpid sender = far.held->signal.sender();
    const Local* const local = introduce(sender);
    if (local == nullptr) {
        if (!session_.nameOf(sender).empty()) return Forwarded::later;
        tally_.lose(far.name, 1);
        return Forwarded::done;
    }
    switch (session->send(id, *local->id, far.held->signal.number(), std::move(far.held->payload))) {
        case Sent::taken:
            return Forwarded::done;
        case Sent::later:
            return Forwarded::later;
        case Sent::gone:
        case Sent::tooLarge:
            tally_.lose(far.name, 1);
            return Forwarded::done;
    }
    return Forwarded::done;
}

bool Gateway::lookForParcels(Time now) {
    if (parcels_.empty() || !session_) {
        lookAt_ = Time::max();
        return false;
    }
    if (now < lookAt_) return false;
    const std::vector<Parcels::Parcel> home = parcels_.takeHome(session_.get());
    for (const Parcels::Parcel& parcel : home) consumed(parcel);
    lookAfter_ = home.empty() ? std::min(2 * lookAfter_, longestLook) : Time(std::chrono::milliseconds(1));
    lookAt_ = parcels_.empty() ? Time::max() : now + lookAfter_;
    return !home.empty();
}

void Gateway::consumed(const Parcels::Parcel& parcel) {
    if (Session* const session = peer_.session()) session->consumed(parcel.to, parcel.payload);
}

}  // namespace linx::link
