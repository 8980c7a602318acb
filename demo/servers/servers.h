#ifndef LINXIPC_DEMO_SERVERS_SERVERS_H
#define LINXIPC_DEMO_SERVERS_SERVERS_H

#include <memory>

#include "demo/servers/server.h"

namespace demo {

std::unique_ptr<Server> makeConfigMgr(const Wiring& wiring);
std::unique_ptr<Server> makeConnectionMgr(const Wiring& wiring);
std::unique_ptr<Server> makeEncodeCtrl(e_Process self, const Wiring& wiring);
std::unique_ptr<Server> makeGpsHal(const Wiring& wiring);
std::unique_ptr<Server> makeOffloader(const Wiring& wiring);
std::unique_ptr<Server> makePlaybackMgr(const Wiring& wiring);
std::unique_ptr<Server> makeStateMgr(const Wiring& wiring);
std::unique_ptr<Server> makeStreamMgr(const Wiring& wiring);
std::unique_ptr<Server> makeSysTickHal(const Wiring& wiring);
std::unique_ptr<Server> makeUiMgr(const Wiring& wiring);
std::unique_ptr<Server> makeWatchdogMgr(const Wiring& wiring);

/// Runs the server of that name until it ends. The exit status of the process; 2 when there is no such server.
int runServer(const std::string& name, const Wiring& wiring);

}  // namespace demo

#endif
