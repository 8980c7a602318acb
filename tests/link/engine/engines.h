#ifndef LINXIPC_TESTS_LINK_ENGINE_ENGINES_H
#define LINXIPC_TESTS_LINK_ENGINE_ENGINES_H

#include <gmock/gmock.h>

#include "tests/link/engine/makers.h"

namespace linktest {

/// Those that this machine has.
using Makers = testing::Types<LocalMaker>;

}  // namespace linktest

#endif
