// The types of all public operations and objects: what fails here fails to compile.
#include <string>
#include <type_traits>

#include "directory/LinxServerNameList.h"
#include "ipc/linxIpc.h"
#include "platform/DiffTime.h"
#include "platform/LogClient.h"

namespace {

template <auto member, typename Type>
constexpr bool is = std::is_same_v<decltype(member), Type>;

template <auto overload>
constexpr bool exists = true;

using String = const std::string&;
using Handler = void (*)(LinxIpc*, void*);

static_assert(is<&IpcMessage::Allocate, int (IpcMessage::*)(unsigned, unsigned, char*)>);
static_assert(is<&IpcMessage::Fill, int (IpcMessage::*)(const char*, unsigned)>);
static_assert(is<&IpcMessage::DataPtr, char* (IpcMessage::*)()>);
static_assert(is<&IpcMessage::Length, unsigned (IpcMessage::*)() const>);
static_assert(is<&IpcMessage::MsgType, unsigned (IpcMessage::*)() const>);
static_assert(is<&IpcMessage::GetSender, String (IpcMessage::*)() const>);
static_assert(is<&IpcMessage::SetSender, void (IpcMessage::*)(String)>);
static_assert(std::is_default_constructible_v<IpcMessage> && !std::is_copy_constructible_v<IpcMessage>);

static_assert(is<&RelayMessage::Allocate, int (RelayMessage::*)(unsigned, unsigned, char*)>);
static_assert(is<&RelayMessage::Fill, int (RelayMessage::*)(const char*, unsigned)>);
static_assert(is<&RelayMessage::DataPtr, char* (IpcMessage::*)()>, "not overridden");
static_assert(is<&RelayMessage::Deallocate, void (RelayMessage::*)()>);
static_assert(is<&RelayMessage::Endpoint, LinxIpc* (RelayMessage::*)() const>);
static_assert(is<&RelayMessage::Sig, LinxSignal* (RelayMessage::*)() const>);
static_assert(is<&RelayMessage::SetType, void (RelayMessage::*)(unsigned)>);
static_assert(std::is_constructible_v<RelayMessage, LinxIpc*> && std::is_base_of_v<IpcMessage, RelayMessage>);

static_assert(is<&FileDescriptor::Send, int (FileDescriptor::*)(const void*, unsigned, unsigned&)>);
static_assert(is<&FileDescriptor::Receive, int (FileDescriptor::*)(void*, unsigned, unsigned&)>);
static_assert(is<&FileDescriptor::Blocking, int (FileDescriptor::*)(bool)>);
static_assert(is<&FileDescriptor::Descriptor, int (FileDescriptor::*)() const>);
static_assert(std::is_abstract_v<FileDescriptor> && std::is_base_of_v<FileDescriptor, LinxIpc>);

static_assert(std::is_constructible_v<LinxIpc, String> && std::is_constructible_v<LinxIpc, const char*>);
static_assert(!std::is_copy_constructible_v<LinxIpc> && !std::is_abstract_v<LinxIpc>);
static_assert(is<&LinxIpc::emptyString, const std::string*>);
static_assert(is<&LinxIpc::rxMessage, IpcMessage LinxIpc::*>);
static_assert(is<&LinxIpc::relayMessage, RelayMessage LinxIpc::*>);
static_assert(is<&LinxIpc::CommonInit, void (LinxIpc::*)(String)>);
static_assert(is<&LinxIpc::Init, int (LinxIpc::*)()>);
static_assert(is<&LinxIpc::Linx, LINX* (LinxIpc::*)() const>);
static_assert(is<&LinxIpc::Send, int (LinxIpc::*)(const void*, unsigned, unsigned&)>);
static_assert(is<&LinxIpc::Blocking, int (LinxIpc::*)(bool)>);
static_assert(is<&LinxIpc::RegisterHandler, void (LinxIpc::*)(unsigned, Handler, void*)>);
static_assert(is<&LinxIpc::RegisterRelayHandler, void (LinxIpc::*)(unsigned, Handler, void*)>);
static_assert(is<&LinxIpc::RegisterShutdown, void (LinxIpc::*)(Handler, void*)>);
static_assert(is<&LinxIpc::RegisterProcessDied, void (LinxIpc::*)(Handler, void*)>);
static_assert(is<&LinxIpc::RegisterDefault, void (LinxIpc::*)(Handler, void*)>);
static_assert(is<&LinxIpc::DeregisterHandler, void (LinxIpc::*)(unsigned)>);
static_assert(is<&LinxIpc::DeregisterShutdown, void (LinxIpc::*)()>);
static_assert(is<&LinxIpc::DeregisterProcessDied, void (LinxIpc::*)()>);
static_assert(is<&LinxIpc::DeregisterDefault, void (LinxIpc::*)()>);
static_assert(exists<static_cast<int (LinxIpc::*)(void*, unsigned, unsigned&)>(&LinxIpc::Receive)>);
static_assert(exists<static_cast<int (LinxIpc::*)(int, unsigned, String, IpcMessage*)>(&LinxIpc::Receive)>);
static_assert(exists<static_cast<int (LinxIpc::*)(Watchdog&, int)>(&LinxIpc::Receive)>);
static_assert(is<&LinxIpc::ResolveDestination, int (LinxIpc::*)(String, bool)>);
static_assert(is<&LinxIpc::MessageOriginator, String (LinxIpc::*)(int&)>);
static_assert(is<&LinxIpc::Attach, int (LinxIpc::*)(const char*, unsigned)>);
static_assert(is<&LinxIpc::Notify, int (LinxIpc::*)(String, IpcMessage&, bool)>);
static_assert(is<&LinxIpc::Request, int (LinxIpc::*)(String, IpcMessage&, unsigned, int, IpcMessage*)>);
static_assert(is<&LinxIpc::AsyncRequest, int (LinxIpc::*)(String, IpcMessage&, unsigned, int, IpcMessage*)>);
static_assert(is<&LinxIpc::EnableTimer, int (LinxIpc::*)(int, unsigned)>);
static_assert(is<&LinxIpc::DisableTimer, int (LinxIpc::*)()>);
static_assert(is<&LinxIpc::Relay, int (LinxIpc::*)(RelayMessage&, String)>);

static_assert(is<&LinxServerNameList::Instance, LinxServerNameList& (*)()>);
static_assert(is<&LinxServerNameList::Name, String (LinxServerNameList::*)(e_Process)>);
static_assert(is<&LinxServerNameList::Process, e_Process (LinxServerNameList::*)(String) const>);

static_assert(is<&LogClient::Instance, LogClient* (*)()>);
static_assert(is<&LogClient::Level, unsigned (LogClient::*)() const>);
static_assert(is<&LogClient::ProcessName, String (LogClient::*)() const>);
static_assert(is<&LogMsg::Log, std::ostream& (LogMsg::*)(unsigned, String)>);
static_assert(std::is_default_constructible_v<SysLogMsg> && std::is_base_of_v<LogMsg, SysLogMsg>);
static_assert(!std::is_polymorphic_v<LogClient> && !std::is_polymorphic_v<SysLogMsg>);

static_assert(is<&DiffTime::CalcInitialTimeout, unsigned (*)(int)>);
static_assert(is<&DiffTime::ReCalcTimeout, int (*)(unsigned)>);

static_assert(is<&Watchdog::PetWatchdog, int (Watchdog::*)()>);
static_assert(std::is_empty_v<Watchdog> && std::is_default_constructible_v<Watchdog>);

}  // namespace
