// What the session tells a gateway.

#include <cerrno>
#include <cstring>

#include "link/proxies/gateway.h"
#include "link/proxies/numbers.h"

namespace linx::link {
namespace {

constexpr Time retryPause = std::chrono::milliseconds(5);
constexpr Time shortestLook = std::chrono::milliseconds(1);

const char* textOf(Refused reason) {
    switch (reason) {
        case Refused::notExported:
            return "not exported";
        case Refused::loop:
            return "loop";
        case Refused::tooFar:
            return "too far";
        case Refused::nameTaken:
            return "name taken";
        case Refused::tooMany:
            return "too many";
    }
    return "unknown";
}

}  // namespace

Gateway::Gateway(Peer& peer, Setup setup, Transit& transit, std::function<void(const std::string&)> note)
    : peer_(peer),
      setup_(std::move(setup)),
      transit_(transit),
      note_(std::move(note)),
      link_(setup_.name, LINX_OPEN_LINK) {
    if (!link_) return;
    if (!watch_.add(link_, linkNumber)) link_.close();
    for (const std::string& name : setup_.imports) seek(name, 0);
}

bool Gateway::turn(Time now, const std::function<void(const Event&)>& told) {
    if (now >= retryAt_) retryAt_ = Time::max();
    bool hasDone = takeEvents(now, told);
    hasDone = serve() || hasDone;
    return lookForParcels(now) || hasDone;
}

void Gateway::retryLater(Time now) {
    retryAt_ = std::min(retryAt_, now + retryPause);
}

bool Gateway::takeEvents(Time now, const std::function<void(const Event&)>& told) {
    bool any = false;
    while (const Event* const event = peer_.event()) {
        if (!mayTake(*event, now)) return any;
        const Event taken = peer_.take();
        told(taken);
        handle(taken);
        any = true;
    }
    return any;
}

/// A signal that there is no memory for stays with the session, and with it what is behind it: its window fills, and
/// the far side stops.
bool Gateway::mayTake(const Event& event, Time now) {
    const Arrived* const signal = std::get_if<Arrived>(&event);
    if (signal == nullptr) return true;
    if (retryAt_ > now && retryAt_ != Time::max()) return false;
    if (deliver(*signal, now)) return true;
    retryLater(now);
    return false;
}

/// False when there is no memory. Whatever else is in the way, the signal has been dealt with.
bool Gateway::deliver(const Arrived& signal, Time now) {
    Session* const session = peer_.session();
    const LinxSpid to = locals_.spidOf(signal.to);
    const auto from = far_.find(signal.from);
    const auto drop = [&] {
        if (session != nullptr) session->consumed(signal.to, signal.payload.size());
        return true;
    };
    if (to == 0 || from == far_.end()) return drop();
    const std::string& name = locals_.find(to)->name;
    if (!mayPass(signal, name, from->second)) return drop();
    const LocalEndpoint& proxy = from->second.proxy;
    LinxSignal* copy =
        linx_alloc(proxy.get(), static_cast<uint32_t>(sizeof(LinxSignal) + signal.payload.size()), signal.number);
    if (copy == nullptr) {
        if (errno != EMSGSIZE) return false;
        tally_.refuse("too large");
        return drop();
    }
    const LinxSignal* const place = copy;
    if (const std::optional<Parcels::Parcel> before = parcels_.take(place)) consumed(*before);
    if (!signal.payload.empty()) std::memcpy(copy + 1, signal.payload.data(), signal.payload.size());
    if (linx_send(proxy.get(), &copy, to) == -1) {
        if (errno != ECONNRESET) tally_.lose(name, 1);
        return drop();
    }
    parcels_.add(place, {proxy.spid(), signal.to, signal.payload.size()});
    lookAfter_ = shortestLook;
    lookAt_ = std::min(lookAt_, now + lookAfter_);
    return true;
}

/// A way back opens only to those who have reached what their node may hunt for.
bool Gateway::mayPass(const Arrived& signal, const std::string& to, Far& from) {
    if (!setup_.rules.maySend(signal.number)) {
        tally_.refuse("control");
        return false;
    }
    if (from.proxy) return true;
    if (!setup_.rules.mayHunt(to)) {
        tally_.refuse("no way back");
        return false;
    }
    return openProxy(signal.from);
}

void Gateway::handle(const Event& event) {
    if (std::holds_alternative<Up>(event)) up();
    if (const Announced* const far = std::get_if<Announced>(&event)) announced(*far);
    if (const Ended* const far = std::get_if<Ended>(&event)) ended(far->id);
    if (const Sought* const it = std::get_if<Sought>(&event)) sought(it->seek);
    if (const WasRefused* const it = std::get_if<WasRefused>(&event)) {
        if (sought_.count(it->refusal.name) == 0 || !refused_.insert(it->refusal.name).second) return;
        note_(setup_.name + '/' + it->refusal.name + " is refused over there: " + textOf(it->refusal.reason));
    }
    if (const Down* const it = std::get_if<Down>(&event)) down(*it);
}

void Gateway::up() {
    session_ = LocalEndpoint(setup_.name + "/@link");
    if (session_ && watch_.add(session_, sessionNumber)) return;
    note_("cannot open " + setup_.name + "/@link: " + std::strerror(errno));
    session_.close();
    if (Session* const session = peer_.session()) session->end(End::bye);
}

void Gateway::down(const Down& down) {
    for (const Loss& loss : down.losses) tally_.lose(loss.name.empty() ? "ended ones" : loss.name, loss.signals);
    for (auto& [id, far] : far_) closeProxy(far);
    far_.clear();
    heldUp_.clear();
    locals_.clear();
    unannounced_.clear();
    parcels_.clear();
    lookAt_ = Time::max();
    standing_.clear();
    refused_.clear();
    if (session_) {
        transit_.passed.erase(session_.spid());
        watch_.remove(session_);
        session_.close();
    }
    const std::string losses = tally_.takeLosses();
    if (!losses.empty()) note_(setup_.name + ": lost with the session: " + losses);
    const std::string refusals = tally_.refusals();
    if (!refusals.empty()) note_(setup_.name + ": refused so far: " + refusals);
}

void Gateway::announced(const Announced& announced) {
    far_[announced.id].name = announced.name;
    const bool isWanted = sought_.count(announced.name) != 0 && refused_.count(announced.name) == 0;
    if (isWanted) openProxy(announced.id);
}

void Gateway::ended(FarId id) {
    const auto far = far_.find(id);
    if (far == far_.end()) return;
    closeProxy(far->second);
    heldUp_.erase(id);
    far_.erase(far);
    // The marks have gone with all that lay there.
    for (const LinxSpid spid : locals_.markedIn(id)) passed(id, spid);
}

bool Gateway::openProxy(FarId id) {
    Far& far = far_[id];
    if (far.proxy || far.isRefused) return !far.isRefused;
    const std::string name = setup_.name + '/' + far.name;
    LocalEndpoint proxy(name);
    if (proxy && watch_.add(proxy, numberOfProxy(id))) {
        far.proxy = std::move(proxy);
        far.isWatched = true;
        return true;
    }
    const int failure = errno;
    far.isRefused = true;
    tally_.refuse(failure == EADDRINUSE ? "name taken" : "cannot open");
    note_("cannot open " + name + ": " + std::strerror(failure));
    refuse(far.name, Refused::nameTaken);
    return false;
}

/// What its senders had been told was sent, and the far endpoint will not get, is counted.
void Gateway::closeProxy(Far& far) {
    if (!far.proxy) return;
    uint64_t lost = far.held ? 1 : 0;
    far.held.reset();
    while (const std::optional<Received> signal = far.proxy.receive()) {
        if (signal->number() != markNumber) ++lost;
    }
    tally_.lose(far.name, lost);
    if (far.isWatched) watch_.remove(far.proxy);
    far.proxy.close();
}

void Gateway::sought(const Seek& seek) {
    if (!setup_.rules.mayHunt(seek.name)) return refuse(seek.name, Refused::notExported);
    const bool passesOn = seek.name.find('/') != std::string::npos;
    if (passesOn && seek.passed.size() >= mostPassed) return refuse(seek.name, Refused::tooFar);
    if (!session_) return;
    if (passesOn) transit_.passed[session_.spid()][seek.name] = seek.passed;
    standing_.insert(seek.name);
    hunt(seek.name);
}

void Gateway::refuse(const std::string& name, Refused reason) {
    tally_.refuse(textOf(reason));
    if (Session* const session = peer_.session()) session->refuse({name, reason});
}

}  // namespace linx::link
