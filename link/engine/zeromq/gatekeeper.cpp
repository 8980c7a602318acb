#include "link/engine/zeromq/gatekeeper.h"

#include "link/engine/key_text.h"

namespace linx::link {
namespace {

/// The parts of a question, as RFC 27 of ZeroMQ has them.
enum Part : size_t { version, request, domainAsked, address, routingId, mechanism, credentials, parts };

constexpr size_t keyBytes = 32;

}  // namespace

Gatekeeper::Gatekeeper(const ZmqContext& context, std::set<std::string> keys)
    : socket_(context, ZMQ_REP), keys_(std::move(keys)), isOpen_(socket_.bind("inproc://zeromq.zap.01")) {}

bool Gatekeeper::answerOne() {
    const std::vector<std::string> question = socket_.receiveAll(parts + 1);
    if (question.empty()) return false;
    std::string key;
    const bool isAdmitted = mayEnter(question, key);
    if (!isAdmitted) ++refused_;
    socket_.sendText("1.0", true);
    socket_.sendText(question.size() > request ? question[request] : "", true);
    socket_.sendText(isAdmitted ? "200" : "400", true);
    socket_.sendText(isAdmitted ? "" : "this key is not known here", true);
    socket_.sendText(isAdmitted ? key : "", true);
    socket_.sendText("");
    return true;
}

bool Gatekeeper::mayEnter(const std::vector<std::string>& question, std::string& key) const {
    if (question.size() != parts || question[version] != "1.0" || question[domainAsked] != domain ||
        question[mechanism] != "CURVE" || question[credentials].size() != keyBytes) {
        return false;
    }
    char text[keyCharacters + 1] = {};
    zmq_z85_encode(text, reinterpret_cast<const uint8_t*>(question[credentials].data()), keyBytes);
    key = text;
    return keys_.count(key) != 0;
}

}  // namespace linx::link
