#include "demo/servers/servers.h"

namespace demo {

namespace {

std::unique_ptr<Server> MakeServer(e_Process server, const Wiring& wiring) {
    switch (server) {
        case e_ConfigMgr:
            return MakeConfigMgr(wiring);
        case e_ConnectionMgr:
            return MakeConnectionMgr(wiring);
        case e_GpsHal:
            return MakeGpsHal(wiring);
        case e_PlaybackMgr:
            return MakePlaybackMgr(wiring);
        case e_StateMgr:
            return MakeStateMgr(wiring);
        case e_StreamMgr:
            return MakeStreamMgr(wiring);
        case e_SysTickHal:
            return MakeSysTickHal(wiring);
        case e_UiMgr:
            return MakeUiMgr(wiring);
        case e_WatchdogMgr:
            return MakeWatchdogMgr(wiring);
        default:
            return nullptr;
    }
}

}  // namespace

int RunServer(const std::string& name, const Wiring& wiring) {
    const auto server = MakeServer(LinxServerNameList::Instance().Process(name), wiring);
    return server == nullptr ? 2 : server->Run();
}

}  // namespace demo
