#include "link/engine/zeromq/zmq_engine.h"

#include <sys/epoll.h>
#include <unistd.h>

#include <algorithm>

namespace linx::link {
namespace {

/// Messages of one socket that are read before the others have their turn, and rounds without any news.
constexpr int mostAtOnce = 32;
constexpr int mostRounds = 16;

Trouble troubleNow(const std::string& what) {
    const int error = zmq_errno();
    return {error, what + ": " + zmq_strerror(error)};
}

}  // namespace

ZmqEngine::ZmqEngine(const KeyPair& keys, std::vector<ZmqPeer> peers)
    : keys_(keys), peers_(std::move(peers)), epoll_(epoll_create1(EPOLL_CLOEXEC)) {}

std::unique_ptr<ZmqEngine> ZmqEngine::open(const KeyPair& keys, const std::string& listen, std::vector<ZmqPeer> peers,
                                           Trouble& trouble) {
    if (!canEncrypt()) {
        trouble = {ENOTSUP, noEncryption};
        return nullptr;
    }
    std::unique_ptr<ZmqEngine> engine(new ZmqEngine(keys, std::move(peers)));
    if (listen.empty()) return engine;
    Listener::Keys numbers;
    std::set<std::string> admitted;
    for (const ZmqPeer& peer : engine->peers_) {
        numbers.emplace(peer.key, PeerNumber(numbers.size()));
        admitted.insert(peer.key);
    }
    engine->gatekeeper_ = std::make_unique<Gatekeeper>(engine->context_, std::move(admitted));
    if (!engine->gatekeeper_->isOpen()) {
        trouble = troubleNow("nobody could be turned away");
        return nullptr;
    }
    engine->watch(engine->gatekeeper_->descriptor(), true);
    engine->listener_ = std::make_unique<Listener>(engine->context_, keys, std::move(numbers));
    if (!engine->listener_->bind(listen)) {
        trouble = troubleNow("cannot listen at " + listen);
        return nullptr;
    }
    engine->watch(engine->listener_->descriptor(), true);
    return engine;
}

ZmqEngine::~ZmqEngine() {
    ::close(epoll_);
}

void ZmqEngine::watch(int descriptor, bool isWatched) {
    epoll_event event = {};
    event.events = EPOLLIN;
    epoll_ctl(epoll_, isWatched ? EPOLL_CTL_ADD : EPOLL_CTL_DEL, descriptor, &event);
}

void ZmqEngine::dial(PeerNumber number, Time now) {
    const ZmqPeer& peer = peers_[indexOf(number)];
    const Connection connection = Connection(next_++);
    Dialled dialled(context_, keys_, peer.key, peer.address, connection, now);
    const auto call = calls_.emplace(connection, Call{number, std::move(dialled)}).first;
    for (const int descriptor : call->second.dialled.descriptors()) watch(descriptor, true);
}

Carried ZmqEngine::send(Connection connection, const Bytes& frame) {
    const auto call = calls_.find(connection);
    if (call != calls_.end()) return call->second.dialled.send(frame);
    std::optional<News> news;
    const std::optional<Carried> carried =
        listener_ ? listener_->send(connection, frame, news) : std::optional<Carried>();
    if (news) news_.push_back(std::move(*news));
    return carried.value_or(Carried::gone);
}

void ZmqEngine::close(Connection connection) {
    const auto call = calls_.find(connection);
    if (call != calls_.end()) return forget(connection);
    if (listener_) listener_->close(connection);
}

void ZmqEngine::forget(Connection connection) {
    const auto call = calls_.find(connection);
    // Before the sockets go, or the descriptors may be others' by then.
    for (const int descriptor : call->second.dialled.descriptors()) watch(descriptor, false);
    call->second.dialled.close();
    calls_.erase(call);
}

std::optional<News> ZmqEngine::next(Time now) {
    hasMore_ = false;
    for (int round = 0; news_.empty() && look(now); ++round) {
        hasMore_ = round == mostRounds;
        if (hasMore_) break;
    }
    if (news_.empty()) return std::nullopt;
    News news = std::move(news_.front());
    news_.pop_front();
    return news;
}

Time ZmqEngine::deadline() const {
    if (hasMore_ || !news_.empty()) return Time(0);
    Time deadline = Time::max();
    for (const auto& [connection, call] : calls_) deadline = std::min(deadline, call.dialled.deadline());
    return deadline;
}

/// Everything once, in its turn. False when there was nothing.
bool ZmqEngine::look(Time now) {
    bool hasRead = false;
    if (gatekeeper_) {
        for (int i = 0; i < mostAtOnce && gatekeeper_->answerOne(); ++i) hasRead = true;
    }
    if (listener_) hasRead = lookAtListener() || hasRead;
    for (auto at = calls_.begin(); at != calls_.end();) {
        const auto call = at++;  // which may be forgotten
        hasRead = lookAt(call->first, call->second, now) || hasRead;
    }
    return hasRead;
}

bool ZmqEngine::lookAtListener() {
    bool hasRead = false;
    for (int i = 0; i < mostAtOnce; ++i) {
        std::optional<News> news;
        if (!listener_->readOne(news, Connection(next_))) break;
        hasRead = true;
        if (!news) continue;
        if (std::holds_alternative<Connected>(*news)) ++next_;
        news_.push_back(std::move(*news));
    }
    return hasRead;
}

bool ZmqEngine::lookAt(Connection connection, Call& call, Time now) {
    bool hasRead = false;
    for (int i = 0; i < mostAtOnce && call.dialled.state() != Dialled::State::ended; ++i) {
        std::optional<Bytes> frame;
        if (!call.dialled.readOne(frame, now)) break;
        hasRead = true;
        if (call.dialled.state() == Dialled::State::open && !call.isTold) {
            call.isTold = true;
            news_.push_back(Connected{call.peer, connection, true});
        }
        if (frame) news_.push_back(FrameArrived{connection, std::move(*frame)});
    }
    if (call.dialled.state() != Dialled::State::ended) return hasRead;
    if (call.isTold) {
        news_.push_back(Disconnected{connection, call.dialled.reason()});
    } else {
        news_.push_back(DialFailed{call.peer, call.dialled.reason()});
    }
    forget(connection);
    return true;
}

}  // namespace linx::link
