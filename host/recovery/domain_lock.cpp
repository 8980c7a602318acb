#include "host/recovery/domain_lock.h"

#include "host/debug/validate.h"
#include "host/recovery/repair.h"

namespace linx {

DomainLock::DomainLock(const Domain& domain, FileLock::Patience patience)
    : domain_(domain), isHeld_(domain.lock().lock(patience)) {
    // An exchange here and a release at the end [dirty]: no store in between moves out, so a process that dies after
    // one leaves the word set. Between holders the lock orders [lock].
    if (isHeld_ && arena().header().dirty.exchangeSeqCst(1) != 0) repair(*this);
}

DomainLock::~DomainLock() {
    if (!isHeld_) return;
#ifdef LINXIPC_VALIDATE
    debug::requireOrder(arena());
#endif
    arena().header().dirty.storeRelease(0);
    domain_.lock().unlock();
}

}  // namespace linx
