// SPDX-License-Identifier: MIT
#ifndef LINXIPC_IPC_LOGLEVEL_H
#define LINXIPC_IPC_LOGLEVEL_H

// The name under which programs include the bits of the log mask.
#include "log/LogLevel.h"

#endif
