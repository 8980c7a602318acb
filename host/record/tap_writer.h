#ifndef LINXIPC_HOST_RECORD_TAP_WRITER_H
#define LINXIPC_HOST_RECORD_TAP_WRITER_H

#include <memory>

#include "host/arena/domain.h"
#include "host/record/tap_file.h"

namespace linx {

/// Copies what an endpoint sends into its ring of the tap, while there is one. Belongs to the endpoint's thread;
/// errno stays.
class TapWriter {
public:
    TapWriter(const Domain& domain, Spid own) : domain_(domain), own_(own), wanted_(domain.arena().header().tap) {}

    /// Whether somebody captures: asked by each send.
    bool isWanted() const { return wanted_.loadRelaxed() != 0; }

    /// Copies a signal that is about to be sent. It is shown to the reader once it has been sent.
    void copy(const BlockRef& block, Spid to);
    void show();

    /// Gives the ring back where nobody captures any more.
    void letGo() {
        if (ring_ != nullptr) close();
    }

private:
    struct Unmap {
        size_t bytes;
        void operator()(void* base) const;
    };
    using Mapping = std::unique_ptr<void, Unmap>;

    bool open(uint32_t id);
    void openRing(int file, SlotIndex index);
    void close();
    void lose() const;
    bool isOrphaned();
    void abandon(int file, uint32_t id) const;
    void write(uint32_t at, const void* bytes, uint32_t count) const;

    const Domain& domain_;
    const Spid own_;
    Word& wanted_;
    uint32_t id_ = 0;  ///< of the tap that was opened, whether that worked or not; 0: none
    Mapping lanes_;    ///< the header and all lanes
    Mapping ring_;     ///< null where there was no memory for it
    uint32_t ringBytes_ = 0;
    uint32_t snapBytes_ = 0;
    uint32_t copied_ = 0;   ///< bytes of the entry that is not shown yet
    uint64_t askedAt_ = 0;  ///< coarse milliseconds: when it was asked last whether the reader lives
};

}  // namespace linx

#endif
