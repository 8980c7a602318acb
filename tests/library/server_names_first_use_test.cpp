#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <string>
#include <thread>
#include <utility>

#include "directory/LinxServerNameList.h"
#include "interposed.h"

namespace {

// What the standard library's map allocates for one entry of the directory.
constexpr std::size_t entrySize = sizeof(std::_Rb_tree_node<std::pair<const e_Process, const std::string>>);

struct FirstUse {
    LinxServerNameList* directory = nullptr;
    std::string name;
    unsigned entriesMade = 0;
};

TEST(ServerNamesFirstUseTest, TwoThreadsThatMeetAtTheFirstUseSeeOneConstruction) {
    std::atomic<int> waiting{2};
    const auto use = [&waiting](FirstUse& seen) {
        interposed::objectsMade(entrySize);
        --waiting;
        while (waiting != 0) std::this_thread::yield();
        seen.directory = &LinxServerNameList::Instance();
        seen.entriesMade = interposed::objectsMade(entrySize);
        seen.name = seen.directory->Name(e_Vp0TsAppReceiver);
    };
    FirstUse one;
    FirstUse other;
    std::thread first(use, std::ref(one));
    std::thread second(use, std::ref(other));
    first.join();
    second.join();

    EXPECT_EQ(one.directory, other.directory);
    EXPECT_EQ(one.entriesMade + other.entriesMade, 37u);
    EXPECT_EQ(one.name, "toVp0/tsAppReceiver");
    EXPECT_EQ(other.name, "toVp0/tsAppReceiver");
}

}  // namespace
