#ifndef LINXIPC_TESTS_LINK_ENGINE_ENGINES_H
#define LINXIPC_TESTS_LINK_ENGINE_ENGINES_H

#include <gmock/gmock.h>

#include "tests/link/engine/makers.h"
#if LINXIPC_ZEROMQ
#include "tests/link/engine/zeromq_maker.h"
#endif

namespace linktest {

/// Those that this machine has.
#if LINXIPC_ZEROMQ
using Makers = testing::Types<LocalMaker, ZeromqMaker>;
#else
using Makers = testing::Types<LocalMaker>;
#endif

}  // namespace linktest

#endif
