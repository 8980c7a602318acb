#ifndef LINXIPC_TESTS_CRASH_OPERATIONS_H
#define LINXIPC_TESTS_CRASH_OPERATIONS_H

#include <vector>

#include "tests/crash/scene.h"

namespace crash {

/// The process that dies, as far as it has come when it begins to act.
struct Victim {
    LINX* linx = nullptr;
    LinxSpid conductor = 0;
    LinxSpid mirror = 0;
    LinxSpid corpse = 0;
    std::vector<LinxSignal*> signals;
    LinxRef timeout = 0;
};

/// Who has died before the victim acts, and has not been cleared up after.
enum class Corpse {
    none,
    atRest,      ///< had an endpoint
    holdingLock  ///< the same, and was opening another
};

/// One thing that an endpoint does, and in which it dies everywhere.
struct Operation {
    const char* name;
    Stance stance;
    const char* looking;  ///< for how many microseconds receivers look before they sleep
    bool opens;           ///< the victim is not open before
    Corpse corpse;
    void (*prepare)(Victim& victim);
    void (*act)(Victim& victim);
};

extern const std::vector<Operation> operations;

/// Opens the victim's endpoint.
void open(Victim& victim);

/// Opens an endpoint that has much to leave behind. Returns its spid.
LinxSpid becomeCorpse();

}  // namespace crash

#endif
