// A peer that says what it likes to a session: frames of the right tag and number with garbage in them, garbage
// without, and between them what a link would say. Whatever it is: the session does not crash, does not hold more
// than it may, and tells its user what it promises.

#include <map>
#include <set>

#include "link/session/session.h"
#include "tests/fuzz/claim.h"
#include "tests/fuzz/input.h"

namespace fuzz {
namespace {

using namespace linx::link;
using namespace std::chrono_literals;

constexpr uint32_t mostSteps = 400;
constexpr uint32_t credit = 8192;

Settings settingsOf(uint8_t node) {
    Settings settings;
    settings.node[0] = node;
    settings.window = leastWindow;
    return settings;
}

class Player {
public:
    explicit Player(Input& input) : input_(input) {}

    void play() {
        greet();
        for (uint32_t left = mostSteps; left != 0 && !input_.empty(); --left) {
            step();
            drain();
        }
        session_.disconnected();
        while (session_.event() != nullptr) told(session_.take());
        claim(isDown_ == isUp_, "whoever was told of a session is told of its end");
    }

private:
    void greet() {
        const uint32_t choice = input_.below(8);
        if (choice == 0) return say(garbage(200));
        Hello hello;
        hello.node[0] = 2;
        hello.nonce = 22;
        hello.window = leastWindow;
        hello.tolerance = 1500;
        Bytes body;
        write(Writer(body), hello);
        if (choice == 1) body[input_.below(static_cast<uint32_t>(body.size()))] = static_cast<uint8_t>(input_.byte());
        say(framed(Type::hello, 0, 0, body, 0));
        if (session_.terms()) sayInOrder(Type::ready, 0, {}, 0);
    }

    void step() {
        switch (input_.below(12)) {
            case 0:
                return say(garbage(100));
            case 1: {
                const OwnId id = session_.announce(name(), credit).value_or(OwnId(0));
                if (numberOf(id) != 0) own_.insert(id);
                return;
            }
            case 2:
                return session_.ended(OwnId(input_.below(4)));
            case 3: {
                session_.send(FarId(input_.below(4)), OwnId(input_.below(4)), input_.word(), Bytes(input_.half()));
                return;
            }
            case 4:
                now_ += Time(input_.half());
                return session_.tick(now_);
            case 5:
                return session_.consumed(OwnId(input_.below(4)), input_.half());
            case 6:
                return sayInOrder(Type::announcement, nextFar_++, announcement(), 0);
            default:
                return sayInOrder(type(), input_.below(4), body(), static_cast<uint8_t>(input_.below(3)));
        }
    }

    Type type() {
        constexpr Type types[] = {
            Type::signals,         Type::signals, Type::fragment, Type::fragment, Type::end, Type::credit,
            Type::acknowledgement, Type::seek,    Type::refusal,  Type::ping,     Type::bye, Type::ready};
        return types[input_.below(12)];
    }
    std::string name() { return std::string(1, static_cast<char>('a' + input_.below(4))); }
    Bytes announcement() {
        Bytes bytes;
        write(Writer(bytes), Announcement{name(), credit});
        return bytes;
    }
    Bytes garbage(uint32_t most) {
        Bytes bytes(input_.below(most + 1));
        for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(input_.byte());
        return bytes;
    }
    /// Something between what belongs there and garbage.
    Bytes body() {
        Bytes bytes;
        switch (input_.below(4)) {
            case 0:
                return garbage(60);
            case 1:
                Writer(bytes).u64(input_.half());
                return bytes;
            case 2:
                write(Writer(bytes), SignalHead{input_.below(4), input_.byte(), input_.below(40000)});
                bytes.resize(bytes.size() + input_.below(bodyBytes - signalHeadBytes));
                return bytes;
            default:
                for (uint32_t left = input_.below(4); left != 0; --left) {
                    const uint32_t size = input_.below(64);
                    write(Writer(bytes), SignalHead{input_.below(4), input_.byte(), size});
                    bytes.resize(bytes.size() + size);
                }
                return bytes;
        }
    }

    Bytes framed(Type type, uint32_t channel, uint64_t sequence, const Bytes& body, uint8_t flags) {
        Bytes frame = openFrame();
        Writer(frame).raw(body);
        Header header;
        header.tag = type == Type::hello ? 0 : session_.terms()->tagIn;
        header.sequence = sequence;
        header.channel = channel;
        header.type = type;
        header.flags = flags;
        closeFrame(frame, header);
        return frame;
    }
    void sayInOrder(Type type, uint32_t channel, const Bytes& body, uint8_t flags) {
        if (session_.terms()) say(framed(type, channel, sequence_++, body, flags));
    }
    /// In memory of exactly its size, so that the sanitizer sees every look beyond it.
    void say(const Bytes& frame) {
        const Bytes exact(frame);
        session_.arrived(exact.data(), exact.size(), now_);
    }

    void drain() {
        while (session_.nextFrame(now_)) {
        }
        claim(session_.bytesIn() <= leastWindow, "no more is held than the window");
        if (input_.below(4) == 0) return;
        while (session_.event() != nullptr) told(session_.take());
    }
    void told(const Event& event) {
        claim(!isDown_, "nothing is told after the end");
        if (std::holds_alternative<Up>(event)) {
            claim(!isUp_, "a session comes up once");
            isUp_ = true;
            return;
        }
        claim(isUp_, "nothing is told before the session is up");
        if (const auto* const opened = std::get_if<Announced>(&event)) {
            claim(isName(opened->name), "only names are told");
            for (const auto& [id, name] : far_) claim(name != opened->name, "a name is told once at a time");
            claim(far_.emplace(opened->id, opened->name).second, "an endpoint is told once");
        } else if (const auto* const closed = std::get_if<Ended>(&event)) {
            claim(far_.erase(closed->id) == 1, "an end is told once, of an endpoint that was told");
        } else if (const auto* const arrived = std::get_if<Arrived>(&event)) {
            claim(far_.count(arrived->from) == 1, "signals come from endpoints that are open");
            claim(own_.count(arrived->to) == 1, "signals come for endpoints that were announced");
            claim(arrived->payload.size() <= mostSignal - 4, "signals are no larger than any");
        } else if (std::holds_alternative<Down>(event)) {
            isDown_ = true;
        }
    }

    Input& input_;
    Time now_ = 1s;
    Session session_{settingsOf(1), 11, now_};
    uint64_t sequence_ = 1;
    uint32_t nextFar_ = 1;
    std::set<OwnId> own_;
    std::map<FarId, std::string> far_;
    bool isUp_ = false;
    bool isDown_ = false;
};

}  // namespace
}  // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::Input input(data, size);
    fuzz::Player(input).play();
    return 0;
}
