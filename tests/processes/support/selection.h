#ifndef LINXIPC_TESTS_PROCESSES_SUPPORT_SELECTION_H
#define LINXIPC_TESTS_PROCESSES_SUPPORT_SELECTION_H

#include <gtest/gtest.h>

#include <optional>
#include <vector>

#include "tests/processes/support/signals.h"

constexpr uint32_t lastForSelection = 101;

/// Sends twelve signals of four numbers in turn, and one that says that they have all been sent.
inline void sendForSelection(LINX* linx, LinxSpid to) {
    for (uint32_t i = 0; i < 12; ++i) ASSERT_EQ(send(linx, to, 200 + i % 4, {i}), 0);
    ASSERT_EQ(send(linx, to, lastForSelection), 0);
}

/// Takes them by selection: the others stay queued, in order.
inline void takeBySelection(LINX* linx) {
    expectAmongOthers(linx, lastForSelection);
    EXPECT_FALSE(receive(linx, 0, {300, 301}));
    const auto takeOneOf = [&](const std::vector<uint32_t>& numbers) {
        const std::optional<Received> received = receive(linx, 0, numbers);
        return received ? static_cast<int>(received->word()) : -1;
    };
    EXPECT_EQ(takeOneOf({203}), 3);
    EXPECT_EQ(takeOneOf({203, 202}), 2);
    EXPECT_EQ(takeOneOf({203, 202}), 6);
    EXPECT_EQ(takeOneOf({203}), 7);
    for (const int left : {0, 1, 4, 5, 8, 9, 10, 11, -1}) EXPECT_EQ(takeOneOf({}), left);
}

#endif
