#include "tests/calls/operations.h"

#include <cerrno>

#include "tests/calls/acts.h"

namespace calls {
namespace {

using scene::Corpse;
using scene::Operation;
using scene::Stance;

const std::vector<Operation> more = {
    {"open a new domain", Stance::working, "1000", false, Corpse::none, goElsewhere, openElsewhere},
    {"open, memory locked", Stance::working, "1000", true, Corpse::none, lockMemory, scene::openSelf},
    {"open, name taken", Stance::working, "1000", false, Corpse::none, scene::nothing, openTaken, EADDRINUSE},
    {"get descriptor", Stance::working, "1000", false, Corpse::none, scene::nothing, getDescriptor},
    {"get name", Stance::working, "1000", false, Corpse::none, scene::nothing, getName},
    {"hunt a dead one", Stance::working, "1000", false, Corpse::atRest, scene::nothing, huntCorpse},
    {"hunt, few descriptors", Stance::working, "1000", false, Corpse::none, lackDescriptors, huntStranger},
    {"attach, few descriptors", Stance::working, "1000", false, Corpse::none, lackDescriptors, attachStranger},
    {"send, few descriptors", Stance::working, "1000", false, Corpse::none, lackDescriptors, sendToStranger},
    {"alloc, pressing others", Stance::working, "1000", false, Corpse::none, pressOthers, allocatePressing},
    {"receive, pressed", Stance::working, "0", false, Corpse::none, bePressed, scene::receiveAny},
    {"receive, greeted", Stance::working, "1000", false, Corpse::none, beGreeted, receiveLong},
    {"receive, woken", Stance::asleep, "0", false, Corpse::none, askToBeWoken, receiveLong},
    {"receive, slept until time-out", Stance::working, "0", false, Corpse::none, haveSoonTimeout, receiveLong},
    {"receive, an end", Stance::working, "0", false, Corpse::none, superviseDead, receiveLong},
    {"poll and receive", Stance::working, "1000", false, Corpse::none, awaitGifts, pollAndReceive},
    {"close, a copy lives on", Stance::asleep, "0", false, Corpse::none, leaveCopy, closeCopied},
    {"close, lost to a child", Stance::working, "1000", false, Corpse::none, loseEndpoint, closeLost, ECHILD},
    {"fork and go on", Stance::working, "1000", false, Corpse::none, scene::holdOne, forkAndGoOn},
    {"close in a child", Stance::working, "1000", false, Corpse::none, scene::holdOne, closeInChild},
};

}  // namespace

const std::vector<Operation>& operations() {
    static const std::vector<Operation> all = [] {
        std::vector<Operation> both = scene::operations;
        both.insert(both.end(), more.begin(), more.end());
        return both;
    }();
    return all;
}

}  // namespace calls
