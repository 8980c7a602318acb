#include "host/recovery/cold_section.h"

#include "host/recovery/repair.h"

namespace linx {

ColdSection::ColdSection(const Domain& domain, FileLock::Patience patience)
    : domain_(domain), entered_(domain.lock().lock(patience)) {
    // An exchange here and a release in the end (R): no store of the section leaves it, so whoever dies with one done
    // dies busy. Between holders the lock orders (P).
    if (entered_ && arena().header().busy.exchangeSeqCst(1) != 0) repair(*this);
}

ColdSection::~ColdSection() {
    if (!entered_) return;
    arena().header().busy.storeRelease(0);
    domain_.lock().unlock();
}

}  // namespace linx
