// SPDX-License-Identifier: MIT
#ifndef LINXIPC_PLATFORM_DIFFTIME_H
#define LINXIPC_PLATFORM_DIFFTIME_H

#include "platform/export.h"

/// Shares one time limit among several waits. It keeps no state: the caller keeps a stamp. Any thread may use it.
class LINXIPC_API DiffTime {
public:
    /// The stamp of a limit that runs out `milliseconds` from now; with a negative number it never does.
    static unsigned CalcInitialTimeout(int milliseconds);

    /// The milliseconds that `stamp` has left: 0 once it has run out, negative if it never does.
    static int ReCalcTimeout(unsigned stamp);
};

#endif
