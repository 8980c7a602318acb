// Sequences of operations by several endpoints of one process, compared with a plain model of what they are to do.

#include "tests/fuzz/claim.h"
#include "tests/fuzz/operations/player.h"
#include "tests/fuzz/playground.h"
#include "tests/kit/arena_order.h"
#include "tests/kit/domain.h"
#include "tests/kit/file_memory.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr uint32_t mostOperations = 256;
    const fuzz::Playground playground;
    static const linxtest::FewSlots few(7);  // used again after a few endpoints
    {
        fuzz::Input input(data, size);
        fuzz::Player player(input);
        for (uint32_t left = mostOperations; left != 0 && !input.empty(); --left) player.play();
    }
    const linxtest::Findings left = linxtest::lookAtAftermath();
    fuzz::claim(left.broken.empty(), "the arena is in order: " + left.broken);
    fuzz::claim(linxtest::namesIn(playground.path()).size() == 1, "nothing but the arena is left");
    return 0;
}
