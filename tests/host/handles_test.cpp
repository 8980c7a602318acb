#include "host/handles.h"

#include <set>

#include "host/endpoint/endpoint.h"
#include "tests/host/endpoints.h"
#include "tests/host/memory_arena.h"

namespace linx {
namespace {

using linxtest::nameOf;

class HandlesTest : public linxtest::DomainTest {};

TEST_F(HandlesTest, AHandleLeadsToItsEndpointUntilItIsTakenBack) {
    std::unique_ptr<Endpoint> endpoint = Endpoint::open(nameOf("one"));
    Endpoint* address = endpoint.get();
    LINX* handle = handles::add(std::move(endpoint));
    EXPECT_EQ(handles::endpointOf(handle), address);
    EXPECT_EQ(handles::remove(handle).get(), address);
    EXPECT_EQ(handles::endpointOf(handle), nullptr);
    EXPECT_EQ(handles::remove(handle), nullptr);
}

TEST_F(HandlesTest, AnyOtherPointerIsNoHandle) {
    const linxtest::KnownEndpoint linx("one");
    const auto off = [&](std::ptrdiff_t by) {
        return reinterpret_cast<LINX*>(reinterpret_cast<uintptr_t>(static_cast<LINX*>(linx)) + static_cast<uintptr_t>(by));
    };
    int onStack = 0;
    EXPECT_EQ(handles::endpointOf(nullptr), nullptr);
    EXPECT_EQ(handles::endpointOf(reinterpret_cast<LINX*>(&onStack)), nullptr);
    EXPECT_EQ(handles::endpointOf(reinterpret_cast<LINX*>(~uintptr_t{0})), nullptr);
    for (const std::ptrdiff_t by : {1, 2, 4, 7, -1, -4}) EXPECT_EQ(handles::endpointOf(off(by)), nullptr) << by;
    for (const std::ptrdiff_t by : {1 << 20, -(1 << 20), 1 << 30})
        EXPECT_EQ(handles::endpointOf(off(by)), nullptr) << by;
}

/// The sanitizers watch that it is not followed either: what lies there may well be null.
TEST_F(HandlesTest, APointerJustOutsideTheTableIsNoHandle) {
    const auto at = [](uintptr_t offset) {
        return reinterpret_cast<LINX*>(reinterpret_cast<uintptr_t>(handles::table) + offset);
    };
    EXPECT_EQ(handles::endpointOf(at(sizeof handles::table)), nullptr);
    EXPECT_EQ(handles::endpointOf(at(-sizeof(LINX))), nullptr);
}

TEST_F(HandlesTest, AHandleIsNotUsedAgainForLong) {
    std::set<LINX*> seen;
    for (int i = 0; i < 300; ++i) {
        LINX* handle = handles::add(Endpoint::open(nameOf("again")));
        EXPECT_TRUE(seen.insert(handle).second);
        handles::remove(handle);
    }
    for (LINX* handle : seen) EXPECT_EQ(handles::endpointOf(handle), nullptr);
}

TEST_F(HandlesTest, TheTableGoesRoundPastWhatIsInUse) {
    const linxtest::KnownEndpoint stays("stays");
    Endpoint* address = handles::endpointOf(stays);
    // An entry that holds no endpoint is free again at once.
    const auto addNothing = [] { return handles::add(std::unique_ptr<Endpoint>()); };
    std::set<LINX*> seen;
    for (uint32_t i = 0; i < 4 * slotCount; ++i) seen.insert(addNothing());
    EXPECT_EQ(seen.count(stays), 0u);
    EXPECT_EQ(seen.size(), 2 * slotCount - 1);
    EXPECT_EQ(handles::endpointOf(stays), address);
}

}  // namespace
}  // namespace linx
