#include "directory/LinxServerNameList.h"

#include "log/LogLine.h"

LinxServerNameList& LinxServerNameList::Instance() {
    static LinxServerNameList directory;
    return directory;
}

LinxServerNameList::LinxServerNameList() {
    std::string link;
    const auto add = [&](e_Process process, const char* baseName) { serverNames.emplace(process, link + baseName); };

    add(e_ConfigMgr, "ConfigMgr");
    add(e_ConnectionMgr, "ConnectionMgr");
    add(e_FPGAHal, "FPGAHal");
    add(e_PowerHal, "PowerHal");
    add(e_StateMgr, "StateMgr");
    add(e_StreamMgr, "StreamMgr");
    add(e_SysTickHal, "SysTickHal");
    add(e_GpsHal, "GpsHal");
    add(e_UiMgr, "UiMgr");
    serverNames.emplace(e_UndefinedServer, "UndefinedServer");
    add(e_UserInputHal, "UserInputHal");
    add(e_WatchdogMgr, "WatchdogMgr");
    add(e_MetadataMgr, "MetadataMgr");
    add(e_SubtitleMgr, "SubtitleMgr");
    add(e_EthMgr, "EthMgr");
    add(e_Offloader, "Offloader");
    add(e_VpHal0, "VpHal0");
    add(e_VpHal1, "VpHal1");
    add(e_CameraHal, "CameraHal");
    add(e_MicMgr, "MicMgr");
    add(e_VideoMgr, "VideoMgr");
    add(e_RadarHal, "RadarHal");
    add(e_AccelHal, "AccelHal");
    add(e_TempHal, "TempHal");
    add(e_TestCycle, "TestCycle");
    add(e_PlaybackMgr, "PlaybackMgr");
    add(e_ExternalMgr, "ExternalMgr");
    add(e_DiagMgr, "DiagMgr");
    add(e_HiFiMicHal, "HiFiMicHal");
    add(e_DcpMgr, "DcpMgr");
    add(e_DrpMgr, "DrpMgr");

    link = "toVp0/";
    add(e_Vp0EncodeCtrl, "EncodeCtrl");
    add(e_Vp0TsAppReceiver, "tsAppReceiver");
    add(e_Vp0TsAppSender, "tsAppSender");

    link = "toVp1/";
    add(e_Vp1EncodeCtrl, "EncodeCtrl");
    add(e_Vp1TsAppSender, "tsAppSender");

    link = "toAltEC/";
    add(e_AltEcEncodeCtrl, "EncodeCtrl");
}

LinxServerNameList::~LinxServerNameList() = default;

const std::string& LinxServerNameList::Name(e_Process process) {
    const auto entry = serverNames.find(process);
    if (entry != serverNames.end()) return entry->second;
    logLine(logText::serverUnknown, static_cast<int>(process), serverNames.size());
    return serverNames[e_UndefinedServer];
}

e_Process LinxServerNameList::Process(const std::string& name) const {
    for (const auto& [process, serverName] : serverNames) {
        if (serverName == name) return process;
    }
    return e_UndefinedServer;
}
