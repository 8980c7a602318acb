#include "testing/RecordingPlatform.h"

#include <cerrno>
#include <stdexcept>
#include <utility>

#include "testing/State.h"

namespace linx::testing {

namespace {

using std::chrono::milliseconds;

milliseconds checked(milliseconds time) {
    if (time < milliseconds(0)) throw std::invalid_argument("the clock does not go back");
    return time;
}

}  // namespace

RecordingPlatform& RecordingPlatform::instance() {
    const AtWork now;
    bringOperations();
    bringServices();
    static RecordingPlatform& instance = *new RecordingPlatform;
    return instance;
}

void RecordingPlatform::reset() {
    const AtWork now;
    Endpoints endpoints = std::move(state().endpoints);
    endpoints.forget();
    state() = State();
    state().endpoints = std::move(endpoints);
    *this = RecordingPlatform();
    errno = 0;
}

LinxSpid RecordingPlatform::addPeer(const std::string& name) {
    const AtWork now;
    Peers& peers = state().peers;
    if (peers.has(name)) endPeer(name);
    const LinxSpid spid = peers.add(name);
    for (const Peers::Hunt& hunt : peers.takeHunts(name)) state().answer(hunt, spid);
    return spid;
}

void RecordingPlatform::endPeer(const std::string& name) {
    const AtWork now;
    const LinxSpid spid = state().peers.end(name);
    if (spid == 0) throw std::invalid_argument("no such peer was added, or it has ended: " + name);
    for (const Peers::Notice& notice : state().peers.takeNotices(spid)) state().deliver(*notice.signal, spid);
}

void RecordingPlatform::setName(LinxSpid spid, const std::string& name) {
    const AtWork now;
    state().peers.setName(spid, name);
}

void RecordingPlatform::answerHunts(const std::string& name, std::initializer_list<LinxSpid> spids) {
    const AtWork now;
    state().peers.answerHunts(name, spids);
}

std::string RecordingPlatform::arrive(LinxSpid from, std::uint32_t number, const std::string& payload) {
    return arriveAfter(milliseconds(0), from, number, payload);
}

std::string RecordingPlatform::arriveAfter(milliseconds delay, LinxSpid from, std::uint32_t number,
                                           const std::string& payload) {
    const AtWork now;
    checked(delay);
    Signal& signal = state().signals.make(from, number, payload);
    state().arrivals.addAfter(delay, signal);
    state().showReadiness();
    return signal.id;
}

LinxSignal* RecordingPlatform::makeSignal(std::uint32_t number, const std::string& payload) {
    const AtWork now;
    Signal& signal = state().signals.make(Peers::ownSpid, number, payload);
    signal.inHand = true;
    return signal.head();
}

void RecordingPlatform::fail(const std::string& operation, std::initializer_list<int> errors) {
    const AtWork now;
    state().failures.add(operation, errors);
}

void RecordingPlatform::failAlways(const std::string& operation, int error) {
    const AtWork now;
    state().failures.setAlways(operation, error);
}

void RecordingPlatform::cancelArrangements() {
    const AtWork now;
    for (const Signal* signal : state().arrivals.takeAll()) state().signals.free(signal->head());
    for (const Peers::Hunt& hunt : state().peers.takeAllHunts()) {
        if (hunt.signal != nullptr) state().signals.free(hunt.signal->head());
    }
    state().failures.clear();
    state().showReadiness();
}

milliseconds RecordingPlatform::now() const {
    return state().arrivals.now();
}

void RecordingPlatform::advance(milliseconds time) {
    const AtWork now;
    state().arrivals.advance(checked(time));
    state().showReadiness();
}

std::vector<std::string> RecordingPlatform::takeCalls() {
    return std::exchange(state().calls, {});
}

void RecordingPlatform::note(const std::string& line) {
    const AtWork now;
    state().calls.push_back(line);
}

std::set<std::string> RecordingPlatform::signalsInHand() const {
    const AtWork now;
    std::set<std::string> ids;
    for (const Signal& signal : state().signals.all()) {
        if (signal.inHand) ids.insert(signal.id);
    }
    return ids;
}

unsigned RecordingPlatform::namesInHand() const {
    return state().namesInHand;
}

std::string RecordingPlatform::nameOf(const LinxSignal* signal) const {
    const AtWork now;
    return state().signals.id(signal);
}

std::string RecordingPlatform::describe(const LinxSignal* signal) const {
    const AtWork now;
    const Signal* known = state().signals.find(signal);
    if (known == nullptr) return "no signal";
    return std::to_string(signal->number) + " '" + known->bytes().substr(sizeof(LinxSignal)) + "'";
}

bool RecordingPlatform::atWork() {
    return AtWork::depth != 0;
}

}  // namespace linx::testing
