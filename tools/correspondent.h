#ifndef LINXIPC_TOOLS_CORRESPONDENT_H
#define LINXIPC_TOOLS_CORRESPONDENT_H

#include <chrono>
#include <map>
#include <optional>
#include <string>

#include "platform/linx.h"
#include "tools/options.h"
#include "tools/payload.h"

namespace tools {

/// How long something may take; none: for ever.
using Patience = std::optional<std::chrono::milliseconds>;

struct Letter {
    uint32_t number = 0;
    LinxSpid sender = 0;
    Bytes payload;
};

/// The endpoint through which the program talks to others, open as long as this object lives. What it cannot do it
/// throws as a Failure.
class Correspondent {
public:
    /// Joins the domain that is meant, which must be there.
    explicit Correspondent(const Options& options);
    ~Correspondent();
    Correspondent(const Correspondent&) = delete;
    Correspondent& operator=(const Correspondent&) = delete;

    /// Who is called that, or will be within the time; none otherwise.
    std::optional<LinxSpid> find(const std::string& name, Patience patience);

    /// The same for those who will not do without: by default it must be there at once.
    LinxSpid require(const std::string& name, const Options& options);

    void send(LinxSpid to, uint32_t number, const Bytes& payload);

    /// From now on a signal `ended` tells when `spid` has; it comes after all that it had sent.
    void supervise(LinxSpid spid, uint32_t ended);

    /// The next signal of one of two numbers; none when time runs out.
    std::optional<Letter> receive(uint32_t number, uint32_t otherNumber, Patience patience);

    /// Waits, and lets go of whatever arrives meanwhile.
    void discardUntil(std::chrono::steady_clock::time_point end);

    std::string nameOf(LinxSpid spid);

private:
    void hunt(const std::string& name, uint32_t hunt);
    std::optional<Letter> receive(const uint32_t* selection, Patience patience);
    uint32_t takeAnswer(const Letter& answer);

    LINX* linx_;
    std::map<std::string, uint32_t> hunts_;  ///< those that are not answered yet, each with its number in its signal
    uint32_t lastHunt_ = 0;
};

/// Tells of an end in a signal that is none of `number`.
constexpr uint32_t endedBeside(uint32_t number) {
    return number == 0xffffffff ? 0xfffffffe : 0xffffffff;
}

}  // namespace tools

#endif
