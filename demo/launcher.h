#ifndef LINXIPC_DEMO_LAUNCHER_H
#define LINXIPC_DEMO_LAUNCHER_H

#include "demo/options.h"

namespace demo {

/// Runs the demonstration. The exit status of the program: 0 when everything happened that was to happen, 128 and
/// the signal's number when it was interrupted, else 1.
int launch(const Options& options);

/// Shows what the demonstration would show.
void listCapabilities(const Options& options);

}  // namespace demo

#endif
