#include "link/session/greeting.h"

#include <algorithm>

namespace linx::link {
namespace {

Hello helloOf(const Settings& settings, uint64_t nonce) {
    Hello hello;
    hello.lowestVersion = settings.lowestVersion;
    hello.highestVersion = settings.highestVersion;
    hello.features = settings.features;
    hello.node = settings.node;
    hello.nonce = nonce;
    hello.byteOrder = settings.byteOrder;
    hello.wordBytes = settings.wordBytes;
    hello.largestSignal = settings.largestSignal;
    hello.window = settings.window;
    hello.tolerance = settings.tolerance;
    return hello;
}

uint64_t scrambled(uint64_t value) {
    value = (value ^ value >> 30) * 0xBF58476D1CE4E5B9;
    value = (value ^ value >> 27) * 0x94D049BB133111EB;
    return value ^ value >> 31;
}

}  // namespace

uint64_t tagOf(uint64_t sender, uint64_t receiver) {
    const uint64_t tag = scrambled(scrambled(sender + 0x9E3779B97F4A7C15) + receiver);
    return tag == 0 ? 1 : tag;
}

Greeting::Greeting(const Settings& settings, uint64_t nonce) : own_(helloOf(settings, nonce)) {}

std::optional<Bytes> Greeting::nextFrame(uint64_t& sequence) {
    Bytes frame = openFrame();
    Header header;
    if (!helloSent_) {
        helloSent_ = true;
        write(Writer(frame), own_);
    } else if (terms_ && !readySent_) {
        readySent_ = true;
        header.type = Type::ready;
        header.tag = terms_->tagOut;
        sequence = 1;  // also when it is said anew, to another HELLO
        header.sequence = sequence++;
    } else {
        return std::nullopt;
    }
    closeFrame(frame, header);
    return frame;
}

std::optional<End> Greeting::take(const FrameView& frame) {
    if (frame.header.type == Type::bye) return End::version;  // the only thing to be said before there is a tag
    if (frame.header.type != Type::hello) return End::malformed;
    const std::optional<Hello> peer = readHello(frame.body());
    return peer ? agree(*peer) : End::malformed;
}

std::optional<End> Greeting::agree(const Hello& peer) {
    if (peer.node == own_.node) return End::self;
    const uint16_t version = std::min(own_.highestVersion, peer.highestVersion);
    if (version < std::max(own_.lowestVersion, peer.lowestVersion)) return End::version;
    if (terms_ && terms_->peer.nonce == peer.nonce) return std::nullopt;
    Terms terms;
    terms.tagOut = tagOf(own_.nonce, peer.nonce);
    terms.tagIn = tagOf(peer.nonce, own_.nonce);
    terms.version = version;
    terms.features = own_.features & peer.features;
    terms.largestSignal = std::min(own_.largestSignal, peer.largestSignal);
    terms.windowOut = peer.window;
    terms.windowIn = own_.window;
    terms.interval = std::chrono::milliseconds(std::min(own_.tolerance, peer.tolerance)) / 6;
    terms.peer = peer;
    terms_ = terms;
    readySent_ = false;
    return std::nullopt;
}

}  // namespace linx::link
