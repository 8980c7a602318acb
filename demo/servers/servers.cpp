#include "demo/servers/servers.h"

namespace demo {

namespace {

std::unique_ptr<Server> makeServer(e_Process server, const Wiring& wiring) {
    switch (server) {
        case e_ConfigMgr:
            return makeConfigMgr(wiring);
        case e_ConnectionMgr:
            return makeConnectionMgr(wiring);
        case e_Vp0EncodeCtrl:
        case e_Vp1EncodeCtrl:
            return makeEncodeCtrl(server, wiring);
        case e_GpsHal:
            return makeGpsHal(wiring);
        case e_Offloader:
            return makeOffloader(wiring);
        case e_PlaybackMgr:
            return makePlaybackMgr(wiring);
        case e_StateMgr:
            return makeStateMgr(wiring);
        case e_StreamMgr:
            return makeStreamMgr(wiring);
        case e_SysTickHal:
            return makeSysTickHal(wiring);
        case e_UiMgr:
            return makeUiMgr(wiring);
        case e_WatchdogMgr:
            return makeWatchdogMgr(wiring);
        default:
            return nullptr;
    }
}

}  // namespace

int runServer(const std::string& name, const Wiring& wiring) {
    const auto server = makeServer(LinxServerNameList::Instance().Process(name), wiring);
    return server == nullptr ? 2 : server->run();
}

}  // namespace demo
