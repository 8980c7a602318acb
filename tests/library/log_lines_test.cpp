// Every line that the library can log: its level, its number, its text; and that nothing of it is made when the bit
// of its level is clear.
#include <algorithm>
#include <cerrno>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "directory/LinxServerNameList.h"
#include "fixture.h"

namespace {

using linx::testing::LogLine;

/// Endpoint and messages for one provocation.
struct Scene {
    explicit Scene(RecordingPlatform& used) : platform(used) {
        platform.setName(7, "Peer");
        platform.setName(8, "WatchdogMgr");
        endpoint.Init();
    }

    void meet(LinxSpid spid) {
        platform.arrive(spid, 1);
        endpoint.Receive(-1, 0, LinxIpc::emptyString, nullptr);
    }

    int receive(LinxSpid from, std::uint32_t number, const std::string& payload, const std::string& awaited) {
        platform.arrive(from, number, payload);
        return endpoint.Receive(10, 0, awaited, &message);
    }

    /// Sends to a known peer; these sends fail.
    int notifyWithFailures(std::initializer_list<int> errors) {
        meet(7);
        platform.answerHunts("Peer", {7});
        platform.fail("linx_send", errors);
        return endpoint.Notify("Peer", message, true);
    }

    int notifyInVain() {
        meet(7);
        platform.answerHunts("Peer", {7});
        platform.failAlways("linx_send", ECONNRESET);
        return endpoint.Notify("Peer", message, true);
    }

    RecordingPlatform& platform;
    LinxIpc endpoint{"Self"};
    LinxIpc unopened{"Unopened"};
    IpcMessage message;
    RelayMessage relay{&endpoint};
};

struct Line {
    unsigned level;
    const char* text;
    int result;
    std::function<int(Scene&)> provoke;
    const char* textWithoutErrorText = nullptr;  // for lines with the system's text, when there is none
};

std::ostream& operator<<(std::ostream& stream, const Line& line) {
    return stream << line.text;
}

const Line lines[] = {
    {2, "linxIpc:334 LinxIpc::Init Linx Already initialized", -1, [](Scene& s) { return s.endpoint.Init(); }},
    {2, "linxIpc:342 LinxIpc::Init open failed for: Unopened, errno 98", 98,
     [](Scene& s) {
         s.platform.fail("linx_open", {EADDRINUSE});
         return s.unopened.Init();
     }},
    {2, "linxIpc:363 LinxIpc::Attach use of un-initialized object", -1,
     [](Scene& s) { return s.unopened.Attach("Peer", 500); }},
    {2, "linxIpc:376 LinxIpc::Attach: cannot resolve destination", -1,
     [](Scene& s) { return s.endpoint.Attach("Absent", 500); }},
    {2, "linxIpc:393 LinxIpc::Attach(): failed to attach", 3,
     [](Scene& s) {
         s.meet(7);
         s.platform.fail("linx_attach", {ESRCH});
         return s.endpoint.Attach("Peer", 500);
     }},
    {2, "linxIpc:416 Notify: use of un-initialized object", -1,
     [](Scene& s) { return s.unopened.Notify("Peer", s.message, true); }},
    {2, "linxIpc:438 Notify: cannot resolve destination Absent", -1,
     [](Scene& s) { return s.endpoint.Notify("Absent", s.message, true); }},
    {2, "linxIpc:449 Notify: cannot resolve destination", -1,
     [](Scene& s) {
         s.endpoint.ResolveDestination("Absent", false);
         return s.endpoint.Notify("Absent", s.message, true);
     }},
    {2, "linxIpc:460 Notify: linx_alloc failed: error 12", 12,
     [](Scene& s) {
         s.meet(7);
         s.platform.fail("linx_alloc", {ENOMEM});
         return s.endpoint.Notify("Peer", s.message, true);
     },
     "linxIpc:460 Notify: linx_alloc failed: "},
    {4, "linxIpc:477 Notify: send failed: error 104 retries left = 31", 0,
     [](Scene& s) { return s.notifyWithFailures({ECONNRESET}); }, "linxIpc:477 Notify: send failed: "},
    {4, "linxIpc:478 Notify: send failed: linx destination endpoint name = Peer", 0,
     [](Scene& s) { return s.notifyWithFailures({ECONNRESET}); }},
    {4, "linxIpc:479 Notify: send failed: size of linx message = 4", 0,
     [](Scene& s) { return s.notifyWithFailures({ECONNRESET}); }},
    {2, "linxIpc:484 Notify: send failed. No retries remaining: error 104", 0,
     [](Scene& s) { return s.notifyInVain(); }, "linxIpc:484 Notify: send failed. No retries remaining: "},
    {2, "linxIpc:485 Notify: send failed: linx destination endpoint name = Peer", 0,
     [](Scene& s) { return s.notifyInVain(); }},
    {2, "linxIpc:486 Notify: send failed: size of linx message = 4", 0, [](Scene& s) { return s.notifyInVain(); }},
    {16, "linxIpc:500 Notify: send successful after 2 retries", 0,
     [](Scene& s) {
         return s.notifyWithFailures({ECONNRESET, ECONNRESET});
     }},
    {2, "linxIpc:529 Request: use of un-initialized object", -1,
     [](Scene& s) { return s.unopened.Request("Peer", s.message, 400, 10, nullptr); }},
    {2, "linxIpc:544 Request: call to LinxIpc::Receive failed: 110", 110,
     [](Scene& s) {
         s.meet(7);
         return s.endpoint.Request("Peer", s.message, 400, 10, nullptr);
     }},
    {2, "linxIpc:550 Request: call to LinxIpc::Notify failed: -1", -1,
     [](Scene& s) { return s.endpoint.Request("Absent", s.message, 400, 10, nullptr); }},
    {2, "linxIpc:577 LinxIpc::AsyncRequest use of un-initialized object", -1,
     [](Scene& s) { return s.unopened.AsyncRequest("Peer", s.message, 400, 10, nullptr); }},
    {128, "linxIpc:608 LinxIpc::AsyncRequest did not receive message waiting on, will go back and listen", 0,
     [](Scene& s) {
         s.meet(7);
         s.platform.arrive(7, 301);
         s.platform.arrive(7, 400);
         return s.endpoint.AsyncRequest("Peer", s.message, 400, 10, nullptr);
     }},
    {2, "linxIpc:653 Receive: use of un-initialized object", -1,
     [](Scene& s) { return s.unopened.Receive(10, 0, LinxIpc::emptyString, nullptr); }},
    {2, "linxIpc:700 Receive: error 22", 22,
     [](Scene& s) {
         s.platform.fail("linx_receive", {EINVAL});
         return s.endpoint.Receive(-1, 0, LinxIpc::emptyString, nullptr);
     },
     "linxIpc:700 Receive: "},
    {2, "linxIpc:770 Receive: error allocating message: 90", 90,
     [](Scene& s) { return s.receive(7, 300, std::string(65533, 'x'), ""); }},
    {512, "linxIpc:802 Receive: Shutdown Requested", 108, [](Scene& s) { return s.receive(7, 1280, "", ""); }},
    {16, "linxIpc:813 Receive: Process died 3 - ConfigMgr", 110,
     [](Scene& s) { return s.receive(8, 1281, word(3), ""); }},
    {2, "linxIpc:817 Receive: host unreachable", 113,
     [](Scene& s) { return s.receive(8, 1281, word(3), "ConfigMgr"); }},
    {2, "linxIpc:917 LinxIpc::Attach use of un-initialized object", -1,
     [](Scene& s) { return s.unopened.ResolveDestination("Peer", false); }},
    {2, "linxIpc:935 LinxIpc::ResolveDestination: unresolved", -1,
     [](Scene& s) {
         s.endpoint.ResolveDestination("Absent", false);
         return s.endpoint.ResolveDestination("Absent", true);
     }},
    {32, "linxIpc:941 LinxIpc::ResolveDestination: calling linx_hunt, destination = Absent", -1,
     [](Scene& s) { return s.endpoint.ResolveDestination("Absent", false); }},
    {2, "linxIpc:946 LinxIpc::ResolveDestination: error 28", -1,
     [](Scene& s) {
         s.platform.fail("linx_hunt", {ENOSPC});
         return s.endpoint.ResolveDestination("Peer", true);
     },
     "linxIpc:946 LinxIpc::ResolveDestination: "},
    {2, "linxIpc:955 LinxIpc::ResolveDestination: error 22", -1,
     [](Scene& s) {
         s.platform.fail("linx_receive_w_tmo", {EINVAL});
         return s.endpoint.ResolveDestination("Peer", true);
     },
     "linxIpc:955 LinxIpc::ResolveDestination: "},
    {2, "linxIpc:973 LinxIpc::ResolveDestination: unresolved", -1,
     [](Scene& s) { return s.endpoint.ResolveDestination("Absent", true); }},
    {2, "linxIpc:992 LinxIpc::Attach use of un-initialized object", -1,
     [](Scene& s) { return s.unopened.EnableTimer(10, 0); }},
    {2, "linxIpc:1004 LinxIpc::EnableTimer: error 12", 12,
     [](Scene& s) {
         s.platform.fail("linx_alloc", {ENOMEM});
         return s.endpoint.EnableTimer(10, 500);
     },
     "linxIpc:1004 LinxIpc::EnableTimer: "},
    {2, "linxIpc:1015 LinxIpc::EnableTimer: error 12", 12,
     [](Scene& s) {
         s.platform.fail("linx_request_tmo", {ENOMEM});
         return s.endpoint.EnableTimer(10, 500);
     },
     "linxIpc:1015 LinxIpc::EnableTimer: "},
    {2, "linxIpc:1103 LinxIpc::Send: method not supported", 1,
     [](Scene& s) {
         unsigned sent = 0;
         return s.endpoint.Send(nullptr, 0, sent);
     }},
    {2, "linxIpc:1111 LinxIpc::Receive: method not supported", 1,
     [](Scene& s) {
         unsigned received = 0;
         return s.endpoint.Receive(nullptr, 0, received);
     }},
    {2, "linxIpc:1117 LinxIpc::Blocking: method not supported", 1,
     [](Scene& s) { return s.endpoint.Blocking(true); }},
    {2, "linxIpc:1134 LinxIpc::Attach use of un-initialized object", -1,
     [](Scene& s) { return s.unopened.Relay(s.relay, "Peer"); }},
    {2, "linxIpc:1139 Signal must be sent from originating endpoint", -1,
     [](Scene& s) {
         RelayMessage foreign(&s.unopened);
         return s.endpoint.Relay(foreign, "Peer");
     }},
    {2, "linxIpc:1152 LinxIpc::Notify: cannot resolve destination Absent", -1,
     [](Scene& s) { return s.endpoint.Relay(s.relay, "Absent"); }},
    {2, "linxIpc:1160 Relay Illegal Spid", -1,
     [](Scene& s) {
         s.endpoint.ResolveDestination("Absent", false);
         return s.endpoint.Relay(s.relay, "Absent");
     }},
    {4, "linxIpc:1169 LinxIpc::Notify: send failed: error 104", 0,
     [](Scene& s) {
         s.meet(7);
         s.relay.Allocate(300, 0, nullptr);
         s.platform.fail("linx_send", {ECONNRESET});
         return s.endpoint.Relay(s.relay, "Peer");
     },
     "linxIpc:1169 LinxIpc::Notify: send failed: "},
    {1, "LinxServerNameList:128 LinxServerNameList::Name - ServerName not found for -7,    size = 37", 0,
     [](Scene&) {
         LinxServerNameList::Instance().Name(static_cast<e_Process>(-7));
         return 0;
     }},
};

class LogLinesTest : public LibraryTest, public ::testing::WithParamInterface<Line> {
protected:
    int provoke() {
        Scene scene(platform);
        return GetParam().provoke(scene);
    }

    /// The records of the line, told by its number.
    std::vector<LogLine> records() const {
        const std::string text = GetParam().text;
        const std::string prefix = text.substr(0, text.find(' ') + 1);
        std::vector<LogLine> found;
        for (const LogLine& record : platform.logs) {
            if (record.text.rfind(prefix, 0) == 0) found.push_back(record);
        }
        return found;
    }
};

TEST_P(LogLinesTest, IsWrittenWhenAllBitsAreSet) {
    EXPECT_EQ(provoke(), GetParam().result);
    const std::vector<LogLine> written = records();
    const auto same = [](const LogLine& record) { return record.text == GetParam().text; };
    ASSERT_TRUE(std::any_of(written.begin(), written.end(), same));
    for (const LogLine& record : written) {
        EXPECT_EQ(record.level, GetParam().level);
        EXPECT_EQ(record.process, "TestProcess");
        EXPECT_FALSE(record.streamFailed);
    }
}

TEST_P(LogLinesTest, IsWrittenWhenItsBitAloneIsSet) {
    platform.level = GetParam().level;
    EXPECT_EQ(provoke(), GetParam().result);
    EXPECT_FALSE(records().empty());
    for (const LogLine& record : platform.logs) EXPECT_EQ(record.level, GetParam().level) << record.text;
    EXPECT_EQ(platform.logObjects, platform.logs.size());
}

TEST_P(LogLinesTest, IsNotMadeWhenItsBitIsClear) {
    platform.level = ~GetParam().level;
    EXPECT_EQ(provoke(), GetParam().result);
    EXPECT_TRUE(records().empty());
    for (const LogLine& record : platform.logs) EXPECT_NE(record.level, GetParam().level) << record.text;
    EXPECT_EQ(platform.logObjects, platform.logs.size());
}

TEST_P(LogLinesTest, NothingIsMadeWhenNoBitIsSet) {
    platform.level = 0;
    EXPECT_EQ(provoke(), GetParam().result);
    EXPECT_EQ(platform.logObjects, 0u);
    EXPECT_EQ(interposed::strerrorCalls, 0u);
}

TEST_P(LogLinesTest, FailsItsStreamAndAppendsNothingWhenThereIsNoErrorText) {
    interposed::strerrorGivesNull = true;
    EXPECT_EQ(provoke(), GetParam().result);
    const std::vector<LogLine> written = records();
    ASSERT_FALSE(written.empty());
    if (GetParam().textWithoutErrorText == nullptr) {
        EXPECT_FALSE(written.front().streamFailed);
        return;
    }
    EXPECT_EQ(written.front().text, GetParam().textWithoutErrorText);
    EXPECT_TRUE(written.front().streamFailed);
}

INSTANTIATE_TEST_SUITE_P(Library, LogLinesTest, ::testing::ValuesIn(lines), [](const auto& test) {
    const std::string text = test.param.text;
    const std::size_t colon = text.find(':');
    return text.substr(0, colon) + text.substr(colon + 1, text.find(' ') - colon - 1);
});

class LogLineTest : public EndpointTest {};

TEST_F(LogLineTest, OneObjectMakesOneLineAndEndsWithIt) {
    platform.recordsLogObjects = true;
    endpoint.Init();
    EXPECT_THAT(platform.takeCalls(), ElementsAre("SysLogMsg", "Log(2, TestProcess)", "~SysLogMsg",
                                                  "log 2 linxIpc:334 LinxIpc::Init Linx Already initialized"));
}

TEST_F(LogLineTest, ThreeLinesAreThreeObjects) {
    platform.answerHunts("Peer", {7});
    endpoint.ResolveDestination("Peer", false);
    platform.recordsLogObjects = true;
    platform.level = 4;
    platform.fail("linx_send", {ECONNRESET});
    platform.takeCalls();
    IpcMessage message;
    endpoint.Notify("Peer", message, true);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre("linx_alloc(4, 0) = s2", "linx_send(s2, 7)",  //
                            "SysLogMsg", "Log(4, TestProcess)", "~SysLogMsg",
                            "log 4 linxIpc:477 Notify: send failed: error 104 retries left = 31",  //
                            "SysLogMsg", "Log(4, TestProcess)", "~SysLogMsg",
                            "log 4 linxIpc:478 Notify: send failed: linx destination endpoint name = Peer",  //
                            "SysLogMsg", "Log(4, TestProcess)", "~SysLogMsg",
                            "log 4 linxIpc:479 Notify: send failed: size of linx message = 4",  //
                            "linx_hunt(\"Peer\", null)", "linx_receive_w_tmo(100, {1, 251})", "linx_sender(s3)",
                            "linx_free_buf(s3)", "linx_alloc(4, 0) = s4", "linx_send(s4, 7)"));
}

TEST_F(LogLineTest, TheLineIsWrittenOnBehalfOfTheProcess) {
    platform.processName = "StateMgr";
    endpoint.Init();
    ASSERT_EQ(platform.logs.size(), 1u);
    EXPECT_EQ(platform.logs[0].process, "StateMgr");
}

TEST_F(LogLineTest, MissingErrorTextCutsTheLineShort) {
    interposed::strerrorGivesNull = true;
    platform.answerHunts("Peer", {7});
    platform.level = 4;
    platform.fail("linx_send", {ECONNRESET});
    IpcMessage message;
    endpoint.Notify("Peer", message, true);
    ASSERT_EQ(platform.logs.size(), 3u);
    EXPECT_EQ(platform.logs[0].text, "linxIpc:477 Notify: send failed: ");
    EXPECT_TRUE(platform.logs[0].streamFailed);
    EXPECT_FALSE(platform.logs[1].streamFailed) << "the next line has a stream of its own";
}

}  // namespace
