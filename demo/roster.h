#ifndef LINXIPC_DEMO_ROSTER_H
#define LINXIPC_DEMO_ROSTER_H

#include <array>
#include <string>

#include "directory/LinxServerNameList.h"

namespace demo {

/// The servers of the demonstration.
constexpr std::array<e_Process, 9> roster = {e_WatchdogMgr, e_ConfigMgr, e_StateMgr,   e_ConnectionMgr, e_StreamMgr,
                                             e_PlaybackMgr, e_UiMgr,     e_SysTickHal, e_GpsHal};

/// The launcher's own place in the directory.
constexpr e_Process launcher = e_TestCycle;

/// The endpoint name of a server.
inline const std::string& nameOf(e_Process server) {
    return LinxServerNameList::Instance().Name(server);
}

}  // namespace demo

#endif
