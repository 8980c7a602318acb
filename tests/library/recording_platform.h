#ifndef LINXIPC_TESTS_LIBRARY_RECORDING_PLATFORM_H
#define LINXIPC_TESTS_LIBRARY_RECORDING_PLATFORM_H

#include <cstdint>
#include <deque>
#include <list>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "platform/linx.h"

namespace recording {

/// A line that was logged.
struct LogRecord {
    unsigned level;
    std::string process;
    std::string text;
    bool streamFailed;
};

/// A signal that was given to linx_send.
struct SentSignal {
    LinxSpid to;
    std::uint32_t number;
    std::string payload;
    std::string bytes;  // from the number word on
};

/// The platform that the library is tested on. It does next to nothing itself: it records every call with its
/// arguments, and answers as the test has told it to.
class Platform {
public:
    static Platform& Instance();

    /// Forgets everything. Every test begins with that.
    void Reset();

    // What happened

    /// The calls recorded since this was last asked: "linx_send(s1, 7)", "log 2 linxIpc:700 ...", "close(4711)".
    /// Signals are called s1, s2, ... in the order in which they are made. A call on a handle other than the one
    /// opened first begins with that handle's name: "[Other]linx_close", "[null]linx_cancel_tmo(0)".
    std::vector<std::string> Calls();
    void Note(const std::string& call);

    std::vector<LogRecord> logs;
    std::vector<SentSignal> sent;
    unsigned logObjects = 0;  // SysLogMsg objects made so far
    unsigned strerrorCalls = 0;
    unsigned buffersAllocated = 0;
    unsigned buffersFreed = 0;
    unsigned namesHandedOut = 0;
    unsigned namesReturned = 0;

    /// The signals that the library has received or allocated and not given away: it holds them, or has lost them.
    std::set<std::string> SignalsInHand() const;

    /// The content of a live signal: "300 'payload'".
    std::string Content(const LinxSignal* signal) const;

    // What the test wants to happen

    unsigned level = 0xFFFFFFFF;
    std::string processName = "TestProcess";
    bool tracesLogObjects = false;  // "SysLogMsg", "Log(2, TestProcess)" and "~SysLogMsg" become calls of their own
    bool strerrorGivesNull = false;
    bool leavesNumbersOut = false;  // linx_alloc does not write the number word
    int descriptor = 4711;          // the one that the next handle exposes
    int petResult = 0;
    int cancelResult = 0;
    std::deque<int> timesLeft;  // what ReCalcTimeout returns; when empty, the whole time, as if none had passed

    /// The next calls of `operation` fail with these errno values, one each; 0 lets one through.
    void Fail(const std::string& operation, std::initializer_list<int> errors);
    void FailAlways(const std::string& operation, int error) { failsAlways[operation] = error; }

    /// Lets linx_get_name know the name of `spid`.
    void Knows(LinxSpid spid, const std::string& name) { names[spid] = name; }

    /// Has hunts for `name` answered by these spids in turn, and then by the last one always.
    void Answers(const std::string& name, std::initializer_list<LinxSpid> spids) { hunted[name] = spids; }

    /// Queues a signal, and returns what it is called in the recorded calls.
    std::string Arrive(LinxSpid from, std::uint32_t number, const std::string& payload = "");

    /// Drops the queued signals, and the failures that have not happened yet.
    void ForgetWhatWasToCome();

    /// Makes a signal for the test, as if it had been received.
    LinxSignal* Signal(std::uint32_t number, const std::string& payload);

    // For the operations

    struct Buffer {
        std::string id;
        LinxSpid sender = 0;
        std::uint32_t size = 0;
        bool inHand = false;
        std::unique_ptr<char[]>
            bytes;  // exactly as long as the signal, so that a sanitizer sees every access beyond it
        LinxSignal* Head() const { return reinterpret_cast<LinxSignal*>(bytes.get()); }
    };

    LINX* Open(const char* name);
    void Call(LINX* linx, const std::string& text);
    bool Fails(const std::string& operation);
    Buffer& Make(LinxSpid sender, std::uint32_t number, std::uint32_t size);
    Buffer* Find(const LinxSignal* signal);
    std::string Id(LinxSignal** signal);
    void Take(LinxSignal** signal);
    int Receive(LinxSignal** signal, const std::uint32_t* selection, bool timed);
    void Hunt(const std::string& name);
    const std::string* NameOf(LinxSpid spid) const;
    unsigned NewStamp(int milliseconds);
    int TimeLeft(unsigned stamp);
    LinxRef NewReference() { return ++lastReference; }
    bool OwnsDescriptor(int number) const { return descriptors.count(number) != 0; }
    void ExposeDescriptor() { descriptors.insert(descriptor); }

private:
    std::vector<std::string> calls;
    std::map<std::string, std::deque<int>> failures;
    std::map<std::string, int> failsAlways;
    std::map<LinxSpid, std::string> names;
    std::map<std::string, std::deque<LinxSpid>> hunted;
    std::list<Buffer> buffers;
    std::deque<LinxSignal*> queue;
    std::deque<std::string> handles;
    std::set<int> descriptors;
    std::map<unsigned, int> stamps;
    unsigned lastSignal = 0;
    unsigned lastStamp = 1000;
    LinxRef lastReference = 500;
};

}  // namespace recording

#endif
