// SPDX-License-Identifier: MIT
#ifndef LINXIPC_DIRECTORY_E_PROCESS_H
#define LINXIPC_DIRECTORY_E_PROCESS_H

#include <cstdint>

/// The servers of the device. The value travels in signals as a 32-bit word, so any value may turn up; 33 and 37 are
/// not in use.
enum e_Process : std::int32_t {
    e_UndefinedServer = 0,
    e_UiMgr = 1,
    e_StateMgr = 2,
    e_ConfigMgr = 3,
    e_FPGAHal = 4,
    e_SubtitleMgr = 5,
    e_PowerHal = 6,
    e_RadarHal = 7,
    e_UserInputHal = 8,
    e_SysTickHal = 9,
    e_CameraHal = 10,
    e_MicMgr = 11,
    e_GpsHal = 12,
    e_AccelHal = 13,
    e_TempHal = 14,
    e_HiFiMicHal = 15,
    e_PlaybackMgr = 16,
    e_ConnectionMgr = 17,
    e_WatchdogMgr = 18,
    e_MetadataMgr = 19,
    e_StreamMgr = 20,
    e_VideoMgr = 21,
    e_EthMgr = 22,
    e_Offloader = 23,
    e_VpHal0 = 24,
    e_VpHal1 = 25,
    e_DiagMgr = 26,
    e_DcpMgr = 27,
    e_DrpMgr = 28,
    e_ExternalMgr = 29,
    e_Vp0EncodeCtrl = 30,
    e_Vp1EncodeCtrl = 31,
    e_AltEcEncodeCtrl = 32,
    e_Vp0TsAppSender = 34,
    e_Vp1TsAppSender = 35,
    e_Vp0TsAppReceiver = 36,
    e_TestCycle = 38
};

#endif
