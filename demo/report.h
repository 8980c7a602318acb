#ifndef LINXIPC_DEMO_REPORT_H
#define LINXIPC_DEMO_REPORT_H

#include <climits>
#include <cstdint>
#include <string>

#include "directory/e_Process.h"

namespace demo {

/// What a server may have seen; the verdict at the end is drawn from these alone.
enum class Fact : std::uint32_t {
    none,             // a line for the reader only
    failed,           // something went wrong; ends the demonstration
    huntedInVain,     // a name was not there yet
    foundLate,        // the hunt signal of such a name came later
    announced,        // WatchdogMgr took a server's announcement
    configGiven,      // ConfigMgr's handler answered a request
    configTaken,      // the answer arrived
    buttonRead,       // UiMgr's poll loop read the front panel
    signalPolled,     // UiMgr's poll loop received a signal
    connected,        // UiMgr's asynchronous request was answered; value: messages handled meanwhile
    chunkRelayed,     // StreamMgr passed one signal on
    streamPlayed,     // PlaybackMgr has a whole stream in order; value: the sum over its bytes
    tickFired,        // SysTickHal's time-out; value: its number
    tickSeen,         // UiMgr was told; value: its number
    fixAwaited,       // GpsHal looks for satellites and somebody waits for it
    killed,           // the launcher killed a server; value: its pid
    supervisorTold,   // the notice of an Attach arrived
    requestCutShort,  // value: the result of the request
    restarted,        // a server had the launcher start another again; value: the new pid
    positionTaken,    // value: the pid of the GpsHal that answered, before it is killed
    reached,          // the same, after WatchdogMgr said that GpsHal was back
    encoded,          // an encoder of another node has answered; value: its pid
    linkCut,          // the launcher killed a link; value: its pid
    encoderLost,      // the notice of an Attach to an encoder arrived
    linkLost,         // that of an Attach to the session of its link
    receiveEnded,     // a server's last Receive; value: its result
    exited,           // value: the wait status
};

/// One record in the pipe to the launcher. A write of this size is atomic, so records never mix.
struct Report {
    std::int64_t microseconds;  // monotonic clock
    std::int32_t server;        // e_Process
    Fact fact;
    std::uint64_t value;
    char text[232];  // ends with 0; empty: nothing to show
};
static_assert(sizeof(Report) == 256 && sizeof(Report) <= PIPE_BUF, "a report is written in one piece");

/// The monotonic clock, the same in all processes.
std::int64_t microseconds();

/// One line or fact, stamped with the time.
Report makeReport(e_Process server, Fact fact, std::uint64_t value, const std::string& text);

/// A server's way to the launcher. For one thread.
class Reporter {
public:
    /// The pipe stays the caller's.
    Reporter(int writeEnd, e_Process server) : pipe_(writeEnd), self_(server) {}

    /// A line for the reader.
    void say(const std::string& text) { note(Fact::none, 0, text); }

    /// Something that the verdict needs, with or without a line.
    void note(Fact fact, std::uint64_t value, const std::string& text = {});

    /// Something went wrong: the launcher ends the demonstration.
    void fail(const std::string& text) { note(Fact::failed, 0, text); }

private:
    int pipe_;
    e_Process self_;
};

}  // namespace demo

#endif
