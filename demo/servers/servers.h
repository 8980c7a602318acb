#ifndef LINXIPC_DEMO_SERVERS_SERVERS_H
#define LINXIPC_DEMO_SERVERS_SERVERS_H

#include <memory>

#include "demo/servers/server.h"

namespace demo {

std::unique_ptr<Server> MakeConfigMgr(const Wiring& wiring);
std::unique_ptr<Server> MakeConnectionMgr(const Wiring& wiring);
std::unique_ptr<Server> MakeGpsHal(const Wiring& wiring);
std::unique_ptr<Server> MakePlaybackMgr(const Wiring& wiring);
std::unique_ptr<Server> MakeStateMgr(const Wiring& wiring);
std::unique_ptr<Server> MakeStreamMgr(const Wiring& wiring);
std::unique_ptr<Server> MakeSysTickHal(const Wiring& wiring);
std::unique_ptr<Server> MakeUiMgr(const Wiring& wiring);
std::unique_ptr<Server> MakeWatchdogMgr(const Wiring& wiring);

/// Runs the server of that name until it ends. The exit status of the process; 2 when there is no such server.
int RunServer(const std::string& name, const Wiring& wiring);

}  // namespace demo

#endif
