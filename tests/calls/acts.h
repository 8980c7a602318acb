#ifndef LINXIPC_TESTS_CALLS_ACTS_H
#define LINXIPC_TESTS_CALLS_ACTS_H

#include "tests/scene/acts.h"

namespace calls {

using scene::Victim;

/// Undoes what preparing may have done to the process: few descriptors, another domain, a helper.
void standDown(Victim& victim);

// To prepare an operation.
void lockMemory(Victim& victim);
void goElsewhere(Victim& victim);
void haveDescriptor(Victim& victim);
void awaitGifts(Victim& victim);
void askToBeWoken(Victim& victim);
void haveSoonTimeout(Victim& victim);
void superviseDead(Victim& victim);
void beGreeted(Victim& victim);
void bePressed(Victim& victim);
void pressOthers(Victim& victim);
void lackDescriptors(Victim& victim);
void leaveCopy(Victim& victim);
void loseEndpoint(Victim& victim);

// Operations: 0 or an errno value.
int openElsewhere(Victim& victim);
int openTaken(Victim& victim);
int getDescriptor(Victim& victim);
int getName(Victim& victim);
int huntCorpse(Victim& victim);
int huntStranger(Victim& victim);
int attachStranger(Victim& victim);
int sendToStranger(Victim& victim);
int allocatePressing(Victim& victim);
int pollAndReceive(Victim& victim);
int receiveLong(Victim& victim);
int closeCopied(Victim& victim);
int closeLost(Victim& victim);
int forkAndGoOn(Victim& victim);
int closeInChild(Victim& victim);

}  // namespace calls

#endif
