#include "tools/correspondent.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <thread>

#include "tools/failure.h"
#include "tools/look.h"
#include "tools/text.h"

namespace tools {
namespace {

using Clock = std::chrono::steady_clock;

[[noreturn]] void fail(const std::string& what) {
    const int reason = errno;
    const char* remedy = reason == ENOMEM   ? "; `linx holders` shows who has the memory"
                         : reason == EACCES ? "; whoever sends must be allowed to write to the domain"
                         : reason == EPROTO ? "; the domain is of another make"
                                            : "";
    throw Failure(refused, what + ": " + std::strerror(reason) + remedy);
}

uint32_t millisecondsUntil(Clock::time_point end) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
    return static_cast<uint32_t>(std::max<int64_t>(left, 0));
}

unsigned char* payloadOf(LinxSignal* signal) {
    return reinterpret_cast<unsigned char*>(signal) + sizeof *signal;
}

}  // namespace

Correspondent::Correspondent(const Options& options) {
    requireDomain(options);
    // Where containers share a domain, the number of this process may be that of another's, too.
    constexpr int attempts = 100;
    const std::string own = "linx." + std::to_string(getpid());
    linx_ = linx_open(own.c_str(), 0, nullptr);
    for (int i = 2; linx_ == nullptr && errno == EADDRINUSE && i <= attempts; ++i) {
        linx_ = linx_open((own + "." + std::to_string(i)).c_str(), 0, nullptr);
    }
    if (linx_ == nullptr) fail("the domain cannot be joined");
}

Correspondent::~Correspondent() {
    linx_close(linx_);
}

std::optional<LinxSpid> Correspondent::find(const std::string& name, Patience patience) {
    if (hunts_.count(name) == 0) hunt(name, ++lastHunt_);
    const uint32_t wanted = hunts_[name];
    // One for whom another has been sought in vain may be there by now, and answers as well.
    while (const std::optional<Letter> answer = receive(LINX_OS_HUNT_SIG, LINX_OS_HUNT_SIG, patience)) {
        if (takeAnswer(*answer) == wanted) return answer->sender;
    }
    return std::nullopt;
}

void Correspondent::hunt(const std::string& name, uint32_t hunt) {
    LinxSignal* signal = linx_alloc(linx_, sizeof *signal + sizeof hunt, LINX_OS_HUNT_SIG);
    if (signal == nullptr) fail("there is no room for the signal");
    std::memcpy(payloadOf(signal), &hunt, sizeof hunt);
    if (linx_hunt(linx_, name.c_str(), &signal) != 0) {
        if (errno == EINVAL || errno == ENAMETOOLONG) throw Failure(badUsage, "a name has 1 to 255 bytes");
        fail("'" + printable(name) + "' cannot be looked for");
    }
    hunts_[name] = hunt;
}

/// The number of the hunt that is answered; 0 where that was none of its own.
uint32_t Correspondent::takeAnswer(const Letter& answer) {
    uint32_t number = 0;
    if (answer.payload.size() != sizeof number) return 0;
    std::memcpy(&number, answer.payload.data(), sizeof number);
    const auto is = [&](const auto& hunt) { return hunt.second == number; };
    const auto found = std::find_if(hunts_.begin(), hunts_.end(), is);
    if (found == hunts_.end()) return 0;
    hunts_.erase(found);
    return number;
}

LinxSpid Correspondent::require(const std::string& name, const Options& options) {
    const std::optional<LinxSpid> found = find(name, options.timeout.value_or(std::chrono::milliseconds(0)));
    if (found) return *found;
    if (options.timeout && options.timeout->count() != 0) {
        throw Failure(timedOut, "nobody has opened '" + printable(name) + "' in time");
    }
    failForName(name);
}

void Correspondent::send(LinxSpid to, uint32_t number, const Bytes& payload) {
    const auto size = static_cast<uint32_t>(sizeof(LinxSignal) + payload.size());
    LinxSignal* signal = linx_alloc(linx_, size, number);
    if (signal == nullptr) fail("there is no room for the signal");
    if (!payload.empty()) std::memcpy(payloadOf(signal), payload.data(), payload.size());
    if (linx_send(linx_, &signal, to) != 0) fail("the signal was not sent");
}

void Correspondent::supervise(LinxSpid spid, uint32_t ended) {
    LinxSignal* notice = linx_alloc(linx_, sizeof(LinxSignal), ended);
    if (notice == nullptr || linx_attach(linx_, &notice, spid) == 0) fail("its end cannot be watched for");
}

std::optional<Letter> Correspondent::receive(uint32_t number, uint32_t otherNumber, Patience patience) {
    const uint32_t selection[] = {2, number, otherNumber};
    return receive(selection, patience);
}

std::optional<Letter> Correspondent::receive(const uint32_t* selection, Patience patience) {
    // A time limit too far off to be counted in milliseconds is none.
    const bool isForEver = !patience || patience->count() >= 0xffffffff;
    const Clock::time_point end = isForEver ? Clock::time_point() : Clock::now() + *patience;
    LinxSignal* signal = nullptr;
    int size = -1;
    do {
        size = isForEver ? linx_receive(linx_, &signal, selection)
                         : linx_receive_w_tmo(linx_, &signal, millisecondsUntil(end), selection);
    } while (size == -1 && errno == EINTR);
    if (size == -1) fail("nothing can be received");
    if (signal == nullptr) return std::nullopt;
    const unsigned char* payload = payloadOf(signal);
    Letter letter = {signal->number, linx_sender(linx_, &signal), Bytes(payload, payload + size - sizeof *signal)};
    linx_free_buf(linx_, &signal);
    return letter;
}

void Correspondent::discardUntil(Clock::time_point end) {
    constexpr uint32_t anything[] = {0};
    using Milliseconds = std::chrono::milliseconds;
    // A receive waits for whole milliseconds: the rest is slept.
    const auto left = [&] { return std::max(std::chrono::floor<Milliseconds>(end - Clock::now()), Milliseconds(0)); };
    while (const std::optional<Letter> letter = receive(anything, left())) {
        if (letter->number == LINX_OS_HUNT_SIG) takeAnswer(*letter);
    }
    std::this_thread::sleep_until(end);
}

std::string Correspondent::nameOf(LinxSpid spid) {
    char* name = nullptr;
    if (linx_get_name(linx_, spid, &name) != 0) return hexadecimal(linx::Spid{spid});
    std::string copy = name;
    linx_free_name(linx_, &name);
    return copy;
}

}  // namespace tools
