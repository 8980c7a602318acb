#ifndef LINXIPC_INSPECT_TAP_H
#define LINXIPC_INSPECT_TAP_H

#include <cstdint>
#include <memory>
#include <vector>

#include "host/arena/spid.h"
#include "inspect/place.h"

namespace linx {
namespace inspect {

/// A signal, as it was sent.
struct Sent {
    uint64_t nanoseconds = 0;  ///< of the realtime clock
    Spid from = Spid::none;
    Spid to = Spid::none;
    uint32_t number = 0;
    uint32_t size = 0;                ///< with the number, as a receive returns it
    std::vector<unsigned char> data;  ///< what follows the number, or its beginning
};

/// Has everybody in a domain tell what is sent there, for as long as this object lives. Senders are not held up: what
/// comes faster than it is taken is counted and lost. One thread at a time.
class Tap {
public:
    /// Null with errno: EBUSY when another process that lives has the domain's tap, EACCES when this one may not
    /// write to the domain, ENOTSUP where there are no taps. At most `snaplen` bytes of each payload are kept.
    static std::unique_ptr<Tap> take(const Place& place, uint32_t snaplen);

    ~Tap();
    Tap(const Tap&) = delete;
    Tap& operator=(const Tap&) = delete;

    /// The next signal, in the order in which they were sent as far as there is one. False when none comes within so
    /// many milliseconds, or a POSIX signal interrupts the wait.
    bool next(Sent& sent, int milliseconds);

    /// Has nobody tell any more. What was sent before, `next` still returns.
    void stop();

    /// Signals that were sent while the tap was there, and that `next` will never return.
    uint64_t lost() const;

private:
    struct Ring;
    explicit Tap(std::unique_ptr<Ring> ring);

    std::unique_ptr<Ring> ring_;
};

}  // namespace inspect
}  // namespace linx

#endif
