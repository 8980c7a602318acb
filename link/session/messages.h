#ifndef LINXIPC_LINK_SESSION_MESSAGES_H
#define LINXIPC_LINK_SESSION_MESSAGES_H

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "link/session/bytes.h"

/// The bodies of frames. Every read function answers nothing for what is not exactly such a body, within the bounds
/// that stand here: what it answers may be believed.
namespace linx::link {

using NodeId = std::array<uint8_t, 16>;

constexpr uint32_t magic = 0x4C4E4B31;  // "LNK1"
constexpr size_t longestName = 255;
constexpr size_t mostPassed = 4;  ///< nodes that a hunt may have passed
constexpr uint32_t leastWindow = 64 * 1024;
constexpr uint32_t mostWindow = 16 * 1024 * 1024;
constexpr uint32_t leastCredit = 1024;
constexpr uint32_t mostCredit = 16 * 1024 * 1024;
constexpr uint32_t mostSignal = 1024 * 1024;  ///< number word included
constexpr uint32_t leastTolerance = 100;      ///< milliseconds
constexpr uint32_t mostTolerance = 30000;

enum class ByteOrder : uint8_t { bigEndian = 1, littleEndian = 2 };

/// What each side says first. Later versions may append to it; what is not known is not read.
struct Hello {
    uint16_t lowestVersion = 1;
    uint16_t highestVersion = 1;
    uint32_t features = 0;
    NodeId node = {};
    uint64_t nonce = 0;
    ByteOrder byteOrder = ByteOrder::littleEndian;
    uint8_t wordBytes = 8;
    uint32_t largestSignal = mostSignal;
    uint32_t window = 0;     ///< bytes of frames that it takes unacknowledged
    uint32_t tolerance = 0;  ///< milliseconds of silence after which it gives up
};

enum class Refused : uint8_t { notExported = 1, loop = 2, tooFar = 3, nameTaken = 4, tooMany = 5 };

struct Seek {
    std::string name;
    std::vector<NodeId> passed;
};

struct Refusal {
    std::string name;
    Refused reason = Refused::notExported;
};

struct Announcement {
    std::string name;
    uint32_t credit = 0;
};

struct Ping {
    uint32_t stamp = 0;  ///< microseconds of the sender's clock
    uint32_t echo = 0;   ///< the last stamp that it had from here
    uint32_t held = 0;   ///< microseconds since then
};

/// In front of each signal's bytes.
struct SignalHead {
    uint32_t source = 0;
    uint32_t number = 0;
    uint32_t size = 0;  ///< bytes behind the number word
};
constexpr size_t signalHeadBytes = 12;

bool isName(const std::string& name);

void write(Writer to, const Hello& hello);
void write(Writer to, const Seek& seek);
void write(Writer to, const Refusal& refusal);
void write(Writer to, const Announcement& announcement);
void write(Writer to, const Ping& ping);
void write(Writer to, const SignalHead& head);

std::optional<Hello> readHello(Reader from);
std::optional<Seek> readSeek(Reader from);
std::optional<Refusal> readRefusal(Reader from);
std::optional<Announcement> readAnnouncement(Reader from);
std::optional<Ping> readPing(Reader from);
/// Reads the head alone and leaves `from` at the first byte behind it.
std::optional<SignalHead> readSignalHead(Reader& from);

}  // namespace linx::link

#endif
