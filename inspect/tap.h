#ifndef LINXIPC_INSPECT_TAP_H
#define LINXIPC_INSPECT_TAP_H

#include <cstdint>
#include <deque>
#include <memory>
#include <vector>

#include "host/record/tap_file.h"
#include "inspect/place.h"

namespace linx {
namespace inspect {

/// A signal as it was sent.
struct Sent {
    uint64_t nanoseconds = 0;  ///< of the real-time clock
    Spid from = Spid::none;
    Spid to = Spid::none;
    uint32_t number = 0;
    uint32_t size = 0;                ///< number word included, as a receive returns it
    std::vector<unsigned char> data;  ///< the first bytes of the payload
};

/// The tap of a domain, while this object lives: what all endpoints send is copied for it. It holds nobody up, nor
/// does its end; what it does not take in time is lost to it. One process has it at a time. For one thread.
class Tap {
public:
    /// Takes the tap, of which `snapBytes` of each payload are wanted. Null with errno: EBUSY when a process has it
    /// that lives, EACCES without the right to join, EINVAL where there is only an arena, ENOMEM, or what the file
    /// system says.
    static std::unique_ptr<Tap> take(const Place& place, uint32_t snapBytes);
    ~Tap();
    Tap(const Tap&) = delete;
    Tap& operator=(const Tap&) = delete;

    /// The next signal, in the order of sending. False when none came within `milliseconds`.
    bool next(Sent& sent, int milliseconds);

    /// How many signals were not copied until now.
    uint64_t lost() const;

private:
    struct Unmap {
        size_t bytes;
        void operator()(void* base) const;
    };
    using Mapping = std::unique_ptr<void, Unmap>;

    /// The ring of a sender, and how far it is read.
    struct Ring {
        SlotIndex index;
        Mapping mapping;
        uint32_t read = 0;
    };

    Tap() = default;
    bool make(const Place& place, uint32_t snapBytes);
    bool fill(int directory, uint32_t snapBytes);
    bool claimName(int directory);
    bool announce(const Place& place);
    const tap::Lane& lane(SlotIndex index) const;
    void findRings();
    void openRing(SlotIndex index);
    void collect();
    void drain(Ring& ring);
    static Mapping map(int file, uint64_t offset, size_t bytes);

    ScopedDescriptor directory_;
    ScopedDescriptor file_;
    Mapping lanes_;        ///< header and lanes of the tap
    Mapping arenaHeader_;  ///< of the domain
    uint32_t id_ = 0;
    uint32_t ringBytes_ = 0;
    bool isNamed_ = false;
    std::vector<bool> isOpen_;  ///< by slot
    std::vector<Ring> rings_;
    std::deque<Sent> taken_;
};

}  // namespace inspect
}  // namespace linx

#endif
