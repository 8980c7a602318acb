#include <limits>
#include <set>
#include <string>
#include <type_traits>

#include "directory/LinxServerNameList.h"
#include "fixture.h"

namespace {

static_assert(std::is_same_v<std::underlying_type_t<e_Process>, std::int32_t>);
static_assert(!std::is_copy_constructible_v<LinxServerNameList> && !std::is_copy_assignable_v<LinxServerNameList>);
static_assert(std::has_virtual_destructor_v<LinxServerNameList>);

struct Server {
    int number;
    e_Process process;
    const char* name;
};

constexpr Server servers[] = {
    {0, e_UndefinedServer, "UndefinedServer"},
    {1, e_UiMgr, "UiMgr"},
    {2, e_StateMgr, "StateMgr"},
    {3, e_ConfigMgr, "ConfigMgr"},
    {4, e_FPGAHal, "FPGAHal"},
    {5, e_SubtitleMgr, "SubtitleMgr"},
    {6, e_PowerHal, "PowerHal"},
    {7, e_RadarHal, "RadarHal"},
    {8, e_UserInputHal, "UserInputHal"},
    {9, e_SysTickHal, "SysTickHal"},
    {10, e_CameraHal, "CameraHal"},
    {11, e_MicMgr, "MicMgr"},
    {12, e_GpsHal, "GpsHal"},
    {13, e_AccelHal, "AccelHal"},
    {14, e_TempHal, "TempHal"},
    {15, e_HiFiMicHal, "HiFiMicHal"},
    {16, e_PlaybackMgr, "PlaybackMgr"},
    {17, e_ConnectionMgr, "ConnectionMgr"},
    {18, e_WatchdogMgr, "WatchdogMgr"},
    {19, e_MetadataMgr, "MetadataMgr"},
    {20, e_StreamMgr, "StreamMgr"},
    {21, e_VideoMgr, "VideoMgr"},
    {22, e_EthMgr, "EthMgr"},
    {23, e_Offloader, "Offloader"},
    {24, e_VpHal0, "VpHal0"},
    {25, e_VpHal1, "VpHal1"},
    {26, e_DiagMgr, "DiagMgr"},
    {27, e_DcpMgr, "DcpMgr"},
    {28, e_DrpMgr, "DrpMgr"},
    {29, e_ExternalMgr, "ExternalMgr"},
    {30, e_Vp0EncodeCtrl, "toVp0/EncodeCtrl"},
    {31, e_Vp1EncodeCtrl, "toVp1/EncodeCtrl"},
    {32, e_AltEcEncodeCtrl, "toAltEC/EncodeCtrl"},
    {34, e_Vp0TsAppSender, "toVp0/tsAppSender"},
    {35, e_Vp1TsAppSender, "toVp1/tsAppSender"},
    {36, e_Vp0TsAppReceiver, "toVp0/tsAppReceiver"},
    {38, e_TestCycle, "TestCycle"},
};

constexpr bool everyServerHasItsNumber() {
    for (const Server& server : servers) {
        if (server.process != server.number) return false;
    }
    return true;
}
static_assert(everyServerHasItsNumber());

class ServerNamesTest : public LibraryTest {
protected:
    LinxServerNameList& directory = LinxServerNameList::Instance();
};

TEST_F(ServerNamesTest, EveryServerHasItsName) {
    std::set<std::string> names;
    for (const Server& server : servers) {
        EXPECT_EQ(directory.Name(server.process), server.name);
        EXPECT_EQ(directory.Process(server.name), server.process);
        names.insert(server.name);
    }
    EXPECT_EQ(names.size(), 37u);
    EXPECT_THAT(platform.takeCalls(), IsEmpty());
}

TEST_F(ServerNamesTest, ANameIsReturnedByReference) {
    EXPECT_EQ(&directory.Name(e_ConfigMgr), &directory.Name(e_ConfigMgr));
    EXPECT_EQ(&directory.Name(static_cast<e_Process>(33)), &directory.Name(e_UndefinedServer));
}

TEST_F(ServerNamesTest, LookingUpANameTakesNoMemory) {
    for (std::size_t size = 0; size < 256; ++size) interposed::objectsMade(size);
    directory.Name(e_Vp0TsAppReceiver);
    directory.Name(e_UndefinedServer);
    for (std::size_t size = 0; size < 256; ++size) EXPECT_EQ(interposed::objectsMade(size), 0u) << size;
}

class UnknownProcessTest : public ServerNamesTest, public ::testing::WithParamInterface<int> {};

TEST_P(UnknownProcessTest, IsLoggedAndYieldsTheUndefinedServer) {
    const auto process = static_cast<e_Process>(GetParam());
    const std::string line = "log 1 LinxServerNameList:128 LinxServerNameList::Name - ServerName not found for " +
                             std::to_string(GetParam()) + ",    size = 37";
    EXPECT_EQ(directory.Name(process), "UndefinedServer");
    EXPECT_EQ(directory.Name(process), "UndefinedServer");
    EXPECT_THAT(platform.takeCalls(), ElementsAre(line, line)) << "the directory has not grown either";
}

TEST_P(UnknownProcessTest, IsNotLoggedWhenItsBitIsClear) {
    platform.level = ~1u;
    EXPECT_EQ(directory.Name(static_cast<e_Process>(GetParam())), "UndefinedServer");
    EXPECT_THAT(platform.takeCalls(), IsEmpty());
    EXPECT_EQ(platform.logObjects, 0u);
}

INSTANTIATE_TEST_SUITE_P(ServerNames, UnknownProcessTest,
                         ::testing::Values(33, 37, 39, -1, std::numeric_limits<int>::min(),
                                           std::numeric_limits<int>::max()));

class UnknownNameTest : public ServerNamesTest, public ::testing::WithParamInterface<std::string> {};

TEST_P(UnknownNameTest, SilentlyYieldsTheUndefinedServer) {
    EXPECT_EQ(directory.Process(GetParam()), 0);
    EXPECT_THAT(platform.takeCalls(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(ServerNames, UnknownNameTest,
                         ::testing::Values("EncodeCtrl", "tsAppSender", "tsAppReceiver", "statemgr", "", "StateMgr ",
                                           " StateMgr", "StateMg", "UndefinedServer", "toVp1/tsAppReceiver",
                                           "toVp0//EncodeCtrl", std::string("StateMgr\0", 9), "unknown"));

TEST_F(ServerNamesTest, ThereIsOneDirectory) {
    EXPECT_EQ(&LinxServerNameList::Instance(), &directory);
}

}  // namespace
