#include <algorithm>
#include <chrono>
#include <sstream>

#include "platform/DiffTime.h"
#include "platform/LogClient.h"
#include "platform/Watchdog.h"
#include "testing/State.h"

namespace linx::testing {

void bringServices() {}

}  // namespace linx::testing

using linx::testing::AtWork;
using linx::testing::RecordingPlatform;
using linx::testing::state;

unsigned DiffTime::CalcInitialTimeout(int milliseconds) {
    const AtWork now;
    const unsigned stamp = ++state().lastStamp;
    auto& end = state().stamps[stamp];
    if (milliseconds >= 0) end = state().arrivals.now() + std::chrono::milliseconds(milliseconds);
    state().calls.push_back("CalcInitialTimeout(" + std::to_string(milliseconds) + ") = " + std::to_string(stamp));
    return stamp;
}

int DiffTime::ReCalcTimeout(unsigned stamp) {
    const AtWork now;
    state().calls.push_back("ReCalcTimeout(" + std::to_string(stamp) + ")");
    std::deque<int>& arranged = RecordingPlatform::instance().timesLeft;
    if (!arranged.empty()) {
        const int left = arranged.front();
        arranged.pop_front();
        return left;
    }
    const auto& end = state().stamps[stamp];
    if (!end) return -1;
    return static_cast<int>(std::max<std::chrono::milliseconds::rep>((*end - state().arrivals.now()).count(), 0));
}

int Watchdog::PetWatchdog() {
    const AtWork now;
    state().calls.push_back("PetWatchdog");
    return RecordingPlatform::instance().watchdogResult;
}

struct LogClient::Settings {};
LogClient::LogClient() = default;
LogClient::~LogClient() = default;

LogClient* LogClient::Instance() {
    static LogClient client;
    return &client;
}

unsigned LogClient::Level() const {
    return RecordingPlatform::instance().level;
}

const std::string& LogClient::ProcessName() const {
    return RecordingPlatform::instance().processName;
}

struct LogMsg::Line {
    unsigned level = 0;
    std::string process;
    std::ostringstream stream;
};

LogMsg::LogMsg() = default;
LogMsg::~LogMsg() = default;

std::ostream& LogMsg::Log(unsigned level, const std::string& process) {
    line = std::make_unique<Line>();  // not at work: a `new` that is to fail may fail here, as on any platform
    const AtWork now;
    if (RecordingPlatform::instance().recordsLogObjects) {
        RecordingPlatform::instance().note("Log(" + std::to_string(level) + ", " + process + ")");
    }
    line->level = level;
    line->process = process;
    return line->stream;
}

SysLogMsg::SysLogMsg() {
    const AtWork now;
    RecordingPlatform& platform = RecordingPlatform::instance();
    if (platform.recordsLogObjects) platform.note("SysLogMsg");
    ++platform.logObjects;
}

SysLogMsg::~SysLogMsg() {
    const AtWork now;
    RecordingPlatform& platform = RecordingPlatform::instance();
    if (platform.recordsLogObjects) platform.note("~SysLogMsg");
    if (!line) return;
    const std::string text = line->stream.str();
    platform.logs.push_back({line->level, line->process, text, line->stream.fail()});
    platform.note("log " + std::to_string(line->level) + " " + text);
}
