// What platform/linx.h promises of each operation, for those who are to be held to it.

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "tests/calls/acts.h"
#include "tests/calls/operations.h"

namespace calls {
namespace {

using Errors = std::vector<int>;

// As the header lists them, but for those that tell of what is not so here: a wrong argument, an endpoint that is
// another process's or has ended, a domain that has been removed.
const Errors none = {};
const Errors memory = {ENOMEM};
const Errors descriptors = {ENOMEM, EMFILE, ENFILE};
const Errors files = {ENOMEM, EMFILE, ENFILE, ESTALE, EIO, ENOLCK, EACCES, EPERM, ELOOP, ENOTDIR, EROFS};
const Errors open = {ENOMEM, EMFILE,  ENFILE, ESTALE, EIO,    ENOLCK, EACCES, EPERM,
                     ELOOP,  ENOTDIR, EROFS,  ENOSPC, EDQUOT, EMLINK, ENOENT};

void expectAnswer(Victim& victim, uint32_t number) {
    expectAmongOthers(victim.linx, number);
}

void proveHunt(Victim& victim) {
    expectAnswer(victim, LINX_OS_HUNT_SIG);
}

/// Whoever opens under the name answers.
void provePending(Victim& victim, const char* name) {
    EXPECT_EQ(scene::openOther(victim, name), 0);
    expectAnswer(victim, LINX_OS_HUNT_SIG);
}

void provePendingNobody(Victim& victim) {
    provePending(victim, "nobody");
}

void provePendingCorpse(Victim& victim) {
    provePending(victim, "corpse");
}

void provePendingBehindMirror(Victim& victim) {
    provePending(victim, "mirror/nobody");
}

/// The first bystander hunts for somebody behind it.
void proveTold(Victim& victim) {
    expectAnswer(victim, LINX_OS_SOUGHT_SIG);
}

void proveNotice(Victim& victim) {
    expectAnswer(victim, scene::parcel);
}

/// The stranger ends, which is told.
void proveSupervision(Victim& victim) {
    EXPECT_EQ(linx_close(victim.others[0]), 0);
    victim.others.erase(victim.others.begin());
    expectAnswer(victim, scene::parcel);
}

void proveArrival(Victim& victim) {
    expectAmongOthers(victim.others[0], scene::parcel);
}

void proveTimeout(Victim& victim) {
    EXPECT_EQ(linx_cancel_tmo(victim.linx, &victim.timeout), 0);
}

/// It is told though the end of the doorbell is not.
void proveEnd(Victim& victim) {
    EXPECT_TRUE(victim.progress->notices.reaches(1)) << "the end is not told while somebody has a copy";
}

void proveDescriptor(Victim& victim) {
    EXPECT_EQ(linx_get_descriptor(victim.linx), victim.descriptor);
}

const std::vector<Promise> promises = {
    {scene::openSelf, open, nullptr},
    {scene::openLink, open, proveTold},
    {scene::openCorpse, open, nullptr},
    {openElsewhere, open, nullptr},
    {openTaken, open, nullptr},
    {scene::close, none, nullptr},
    {closeCopied, none, proveEnd, false, true},
    {closeLost, none, nullptr},
    {closeInChild, none, nullptr, true},
    {getDescriptor, descriptors, proveDescriptor},
    {getName, memory, nullptr},
    {scene::huntMirror, files, proveHunt},
    {huntStranger, files, proveHunt},
    {scene::huntNobody, files, provePendingNobody},
    {scene::huntBehindMirror, files, provePendingBehindMirror},
    {huntCorpse, files, provePendingCorpse},
    {scene::attachMirror, files, nullptr},
    {attachStranger, files, proveSupervision},
    {scene::attachCorpse, files, proveNotice},
    {scene::allocateSmall, files, nullptr},
    {scene::allocateLarge, files, nullptr},
    {scene::allocateMany, files, nullptr},
    {allocatePressing, files, nullptr},
    {scene::freeAll, none, nullptr},
    {scene::sendToConductor, files, nullptr},
    {scene::sendToMirror, files, nullptr},
    {scene::sendToCorpse, files, nullptr},
    {sendToStranger, files, proveArrival},
    {forkAndGoOn, files, nullptr},
    {scene::receiveAny, memory, nullptr},
    {receiveLong, memory, nullptr},
    {pollAndReceive, memory, nullptr},
    {scene::askTimeout, files, proveTimeout},
    {scene::cancelTimeout, none, nullptr},
};

}  // namespace

const Promise* promiseOf(const scene::Operation& operation) {
    const auto found = std::find_if(promises.begin(), promises.end(),
                                    [&](const Promise& promise) { return promise.act == operation.act; });
    return found == promises.end() ? nullptr : &*found;
}

}  // namespace calls
