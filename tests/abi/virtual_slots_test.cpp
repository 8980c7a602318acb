// The order of the virtual operations, which programs that were compiled against the headers rely on.
#include <dlfcn.h>
#include <link.h>

#include <string>

#include "directory/LinxServerNameList.h"
#include "fixture.h"

namespace {

constexpr int destructors = 2;  // the complete and the deleting one come first

template <typename Object>
void* slot(const Object& object, int number) {
    return (*reinterpret_cast<void* const* const*>(&object))[number];
}

void* symbol(const char* name) {
    void* address = dlsym(RTLD_DEFAULT, name);
    EXPECT_NE(address, nullptr) << name;
    return address;
}

/// How many slots the table of a class has; offset and type come before them.
std::size_t slots(const char* table) {
    Dl_info place{};
    void* entry = nullptr;
    EXPECT_NE(dladdr1(symbol(table), &place, &entry, RTLD_DL_SYMENT), 0);
    return entry == nullptr ? 0 : static_cast<const ElfW(Sym)*>(entry)->st_size / sizeof(void*) - 2;
}

class VirtualSlotsTest : public EndpointTest {};

TEST_F(VirtualSlotsTest, IpcMessageHasAllocateFillAndDataPtr) {
    const IpcMessage message;
    EXPECT_EQ(slot(message, 0), symbol("_ZN10IpcMessageD1Ev"));
    EXPECT_EQ(slot(message, 1), symbol("_ZN10IpcMessageD0Ev"));
    EXPECT_EQ(slot(message, destructors + 0), symbol("_ZN10IpcMessage8AllocateEjjPc"));
    EXPECT_EQ(slot(message, destructors + 1), symbol("_ZN10IpcMessage4FillEPKcj"));
    EXPECT_EQ(slot(message, destructors + 2), symbol("_ZN10IpcMessage7DataPtrEv"));
}

TEST_F(VirtualSlotsTest, RelayMessageOverridesAllButDataPtr) {
    const RelayMessage message(&endpoint);
    EXPECT_EQ(slot(message, 0), symbol("_ZN12RelayMessageD1Ev"));
    EXPECT_EQ(slot(message, 1), symbol("_ZN12RelayMessageD0Ev"));
    EXPECT_EQ(slot(message, destructors + 0), symbol("_ZN12RelayMessage8AllocateEjjPc"));
    EXPECT_EQ(slot(message, destructors + 1), symbol("_ZN12RelayMessage4FillEPKcj"));
    EXPECT_EQ(slot(message, destructors + 2), symbol("_ZN10IpcMessage7DataPtrEv"));
}

TEST_F(VirtualSlotsTest, LinxIpcHasSendReceiveAndBlocking) {
    EXPECT_EQ(slot(endpoint, 0), symbol("_ZN7LinxIpcD1Ev"));
    EXPECT_EQ(slot(endpoint, 1), symbol("_ZN7LinxIpcD0Ev"));
    EXPECT_EQ(slot(endpoint, destructors + 0), symbol("_ZN7LinxIpc4SendEPKvjRj"));
    EXPECT_EQ(slot(endpoint, destructors + 1), symbol("_ZN7LinxIpc7ReceiveEPvjRj"));
    EXPECT_EQ(slot(endpoint, destructors + 2), symbol("_ZN7LinxIpc8BlockingEb"));
}

TEST_F(VirtualSlotsTest, LinxServerNameListHasItsDestructorOnly) {
    const LinxServerNameList& directory = LinxServerNameList::Instance();
    EXPECT_EQ(slot(directory, 0), symbol("_ZN18LinxServerNameListD1Ev"));
    EXPECT_EQ(slot(directory, 1), symbol("_ZN18LinxServerNameListD0Ev"));
}

TEST_F(VirtualSlotsTest, NoOperationIsVirtualBesidesThese) {
    EXPECT_EQ(slots("_ZTV10IpcMessage"), destructors + 3u);
    EXPECT_EQ(slots("_ZTV12RelayMessage"), destructors + 3u);
    EXPECT_EQ(slots("_ZTV14FileDescriptor"), destructors + 3u);
    EXPECT_EQ(slots("_ZTV7LinxIpc"), destructors + 3u);
    EXPECT_EQ(slots("_ZTV18LinxServerNameList"), destructors + 0u);
}

TEST_F(VirtualSlotsTest, TheLibraryEmitsFileDescriptorsTableAndType) {
    Dl_info table{};
    Dl_info type{};
    Dl_info library{};
    ASSERT_NE(dladdr(symbol("_ZTV14FileDescriptor"), &table), 0);
    ASSERT_NE(dladdr(symbol("_ZTI14FileDescriptor"), &type), 0);
    ASSERT_NE(dladdr(symbol("_ZN7LinxIpc4InitEv"), &library), 0);
    EXPECT_STREQ(table.dli_fname, library.dli_fname);
    EXPECT_STREQ(type.dli_fname, library.dli_fname);
}

}  // namespace
