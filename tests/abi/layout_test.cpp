// Where the fields lie. Users reach some through inline functions and derived classes, and bring the memory for all:
// so every field has its place right behind the one before, and nothing comes in between or after.
#include <map>
#include <string>
#include <type_traits>
#include <vector>

#include "directory/LinxServerNameList.h"
#include "fixture.h"

namespace {

/// Gives access to a field that is not public: what an explicit instantiation names is not checked for that.
template <typename Field, typename Field::Pointer pointer>
struct Opened {
    friend constexpr typename Field::Pointer pointerTo(Field) { return pointer; }
};

// Does not compile unless the field has exactly this type.
#define FIELD(Class, Type, field)                               \
    struct Class##_##field {                                    \
        using Pointer = Type Class::*;                          \
        static constexpr const char* name = #Class "::" #field; \
        friend constexpr Pointer pointerTo(Class##_##field);    \
    };                                                          \
    template struct Opened<Class##_##field, &Class::field>

using Spids = std::map<std::string, unsigned>;
using Names = std::map<unsigned, std::string>;
using Handlers = std::map<unsigned, Callback>;
using Servers = std::map<e_Process, const std::string>;
using Handler = void (*)(LinxIpc*, void*);

FIELD(IpcMessage, std::uint32_t, type);
FIELD(IpcMessage, std::string, sender);
FIELD(IpcMessage, char*, data);
FIELD(IpcMessage, std::uint32_t, length);
FIELD(IpcMessage, std::uint32_t, capacity);
FIELD(IpcMessage, std::uint32_t, fillPos);

FIELD(RelayMessage, LinxSignal*, signal);
FIELD(RelayMessage, LinxIpc*, owner);
FIELD(RelayMessage, std::uint32_t, signalSize);

FIELD(FileDescriptor, int, descriptor);

FIELD(LinxIpc, int, descriptorKind);
FIELD(LinxIpc, std::string, name);
FIELD(LinxIpc, IpcMessage, rxMessage);
FIELD(LinxIpc, RelayMessage, relayMessage);
FIELD(LinxIpc, Spids, huntCache);
FIELD(LinxIpc, Names, senderNames);
FIELD(LinxIpc, LINX*, linx);
FIELD(LinxIpc, int, attachFailed);
FIELD(LinxIpc, LinxRef, timerRef);
FIELD(LinxIpc, Handlers, handlers);
FIELD(LinxIpc, Handlers, relayHandlers);
FIELD(LinxIpc, Callback, defaultHandler);
FIELD(LinxIpc, Spids::iterator, lastDestination);

FIELD(Callback, Handler, function);
FIELD(Callback, void*, userData);

FIELD(LinxServerNameList, Servers, serverNames);

FIELD(LinxSignal, std::uint32_t, number);

constexpr std::size_t behindTheTable = sizeof(void*);  // where objects with virtual operations begin their fields

std::size_t roundUp(std::size_t offset, std::size_t alignment) {
    return (offset + alignment - 1) / alignment * alignment;
}

/// Expects one field at the next place there is for it, and returns where it ends.
template <typename Object, typename Field>
std::size_t pastNext(const Object& object, std::size_t begin, Field) {
    const auto& field = object.*pointerTo(Field());
    using Type = std::remove_reference_t<decltype(field)>;
    const auto offset =
        static_cast<std::size_t>(reinterpret_cast<const char*>(&field) - reinterpret_cast<const char*>(&object));
    EXPECT_EQ(offset, roundUp(begin, alignof(Type))) << Field::name;
    return offset + sizeof(Type);
}

/// Expects the fields in this order and nothing else in the object.
template <typename Object, typename... Fields>
void expectFields(const Object& object, std::size_t begin, Fields... fields) {
    ((begin = pastNext(object, begin, fields)), ...);
    EXPECT_EQ(sizeof(Object), roundUp(begin, alignof(Object)));
}

class LayoutTest : public EndpointTest {};

TEST_F(LayoutTest, IpcMessageHasItsFieldsInARow) {
    expectFields(endpoint.rxMessage, behindTheTable, IpcMessage_type(), IpcMessage_sender(), IpcMessage_data(),
                 IpcMessage_length(), IpcMessage_capacity(), IpcMessage_fillPos());
}

TEST_F(LayoutTest, RelayMessageAddsItsOwnToThose) {
    expectFields(endpoint.relayMessage, behindTheTable, IpcMessage_type(), IpcMessage_sender(), IpcMessage_data(),
                 IpcMessage_length(), IpcMessage_capacity(), IpcMessage_fillPos(), RelayMessage_signal(),
                 RelayMessage_owner(), RelayMessage_signalSize());
}

TEST_F(LayoutTest, LinxIpcAddsItsFieldsToTheDescriptor) {
    expectFields(endpoint, behindTheTable, FileDescriptor_descriptor(), LinxIpc_descriptorKind(), LinxIpc_name(),
                 LinxIpc_rxMessage(), LinxIpc_relayMessage(), LinxIpc_huntCache(), LinxIpc_senderNames(),
                 LinxIpc_linx(), LinxIpc_attachFailed(), LinxIpc_timerRef(), LinxIpc_handlers(),
                 LinxIpc_relayHandlers(), LinxIpc_defaultHandler(), LinxIpc_lastDestination());
}

TEST_F(LayoutTest, CallbackIsAFunctionAndItsUserData) {
    expectFields(Callback(), 0, Callback_function(), Callback_userData());
    EXPECT_TRUE(std::is_trivially_copyable_v<Callback>);
}

TEST_F(LayoutTest, LinxServerNameListIsItsTable) {
    expectFields(LinxServerNameList::Instance(), behindTheTable, LinxServerNameList_serverNames());
}

TEST_F(LayoutTest, ASignalBeginsWithItsNumber) {
    expectFields(LinxSignal(), 0, LinxSignal_number());
    EXPECT_EQ(sizeof(LinxSignal), 4u);
}

}  // namespace
