#ifndef LINXIPC_LINK_PROXIES_GATEWAY_H
#define LINXIPC_LINK_PROXIES_GATEWAY_H

#include <functional>
#include <map>
#include <set>

#include "link/proxies/locals.h"
#include "link/proxies/parcels.h"
#include "link/proxies/rules.h"
#include "link/proxies/tally.h"
#include "link/proxies/watch.h"
#include "link/session/peer.h"
#include "link/status/status.h"

namespace linx::link {

/// What a node knows of the hunts that pass through it: who of its own endpoints hunts for its peers.
struct Transit {
    NodeId node = {};
    std::map<LinxSpid, std::map<std::string, std::vector<NodeId>>> passed;  ///< by the hunter, and the name
};

/*
 * The endpoints of one link in this domain, and what passes through them:
 *
 *   NAME         always open; is told what is hunted for behind it
 *   NAME/@link   open while the session is up; hunts here for what the peer seeks, and is told of ends
 *   NAME/X       the proxy of the far endpoint X: what is sent to it goes there, and what comes from X, comes from it
 *
 * A proxy opens when X is sought here, or has reached an endpoint that its node may hunt for; it closes when X has
 * ended, behind all that X had sent. An endpoint of this domain is announced over there when it was found, or before
 * the first signal that it has sent to a proxy. Signals stay in the mailbox of the proxy while the session takes no
 * more. When the session ends, the proxies close, and then NAME/@link.
 */
class Gateway {
public:
    struct Setup {
        std::string name;
        Rules rules;
        std::vector<std::string> imports;
        std::function<Status()> status;  ///< what is told of the link to whoever asks
    };

    /// `note` is given what the log should tell.
    Gateway(Peer& peer, Setup setup, Transit& transit, std::function<void(const std::string&)> note);
    Gateway(const Gateway&) = delete;
    Gateway& operator=(const Gateway&) = delete;

    /// Whether the link's own endpoint is open; errno when it is not.
    bool isOpen() const { return static_cast<bool>(link_); }
    int descriptor() const { return watch_.descriptor(); }

    /// Does what is to be done; whether there was anything, after which the peer may have something to say. Throws
    /// DomainLost. `told` is called with what the session tells of its beginning and its end.
    bool turn(Time now, const std::function<void(const Event&)>& told);
    /// When it wants another turn even if nothing happens.
    Time deadline() const { return std::min(lookAt_, retryAt_); }
    const Tally& tally() const { return tally_; }
    /// What is sought over there and was refused by the far side in this session.
    const std::set<std::string>& denied() const { return refused_; }

private:
    struct Held {
        Received signal;
        Bytes payload;
    };
    struct Far {
        std::string name;
        LocalEndpoint proxy;
        bool isWatched = false;
        bool isDrained = false;    ///< when it was served last
        bool isRefused = false;    ///< its proxy could not be opened
        std::optional<Held> held;  ///< received, and not taken by the session yet
    };
    enum class Forwarded { done, later };

    // What the session tells: gateway_far.cpp.
    bool takeEvents(Time now, const std::function<void(const Event&)>& told);
    bool mayTake(const Event& event, Time now);
    bool deliver(const Arrived& signal, Time now);
    bool mayPass(const Arrived& signal, const std::string& to, Far& from);
    void handle(const Event& event);
    void up();
    void down(const Down& down);
    void announced(const Announced& far);
    void ended(FarId id);
    void sought(const Seek& seek);
    bool openProxy(FarId id);
    void closeProxy(Far& far);
    void refuse(const std::string& name, Refused reason);

    // What happens in this domain: gateway_near.cpp.
    bool serve();
    bool serveLink();
    bool serveSession();
    bool pump(FarId id, Far& far);
    Forwarded forward(FarId id, Far& far);
    bool take(FarId id, Far& far);
    void seek(const std::string& name, LinxSpid hunter);
    void tellStatus(LinxSpid asker);
    void found(const std::string& name, LinxSpid spid);
    Local* introduce(LinxSpid spid);
    void localEnded(LinxSpid spid);
    void passed(FarId id, LinxSpid spid);
    bool passedPredecessor(FarId id, LinxSpid sender);
    void finishEnd(LinxSpid spid, const Local& local);
    void hunt(const std::string& name);
    bool lookForParcels(Time now);
    void consumed(const Parcels::Parcel& parcel);
    void retryLater(Time now);

    Peer& peer_;
    const Setup setup_;
    Transit& transit_;
    const std::function<void(const std::string&)> note_;
    Watch watch_;
    LocalEndpoint link_;
    LocalEndpoint session_;
    std::set<std::string> sought_;    ///< over there, by somebody here
    std::set<std::string> refused_;   ///< of these, by the far side in this session
    std::set<std::string> standing_;  ///< here, by the peer
    std::map<FarId, Far> far_;
    std::set<FarId> heldUp_;
    Locals locals_;
    std::set<LinxSpid> unannounced_;  ///< of these, for whom there was no room over there
    Parcels parcels_;
    Tally tally_;
    Time lookAt_ = Time::max();
    Time lookAfter_ = {};
    Time retryAt_ = Time::max();
};

}  // namespace linx::link

#endif
