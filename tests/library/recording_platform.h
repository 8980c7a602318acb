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
    static Platform& instance();

    /// Forgets everything. Every test begins with that.
    void reset();

    // What happened

    /// The calls recorded since this was last asked: "linx_send(s1, 7)", "log 2 linxIpc:700 ...", "close(4711)".
    /// Signals are called s1, s2, ... in the order in which they are made. A call on a handle other than the one
    /// opened first begins with that handle's name: "[Other]linx_close", "[null]linx_cancel_tmo(0)".
    std::vector<std::string> calls();
    void note(const std::string& call);

    std::vector<LogRecord> logs;
    std::vector<SentSignal> sent;
    unsigned logObjects = 0;  // SysLogMsg objects made so far
    unsigned strerrorCalls = 0;
    unsigned buffersAllocated = 0;
    unsigned buffersFreed = 0;
    unsigned namesHandedOut = 0;
    unsigned namesReturned = 0;

    /// The signals that the library has received or allocated and not given away: it holds them, or has lost them.
    std::set<std::string> signalsInHand() const;

    /// The content of a live signal: "300 'payload'".
    std::string content(const LinxSignal* signal) const;

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
    void fail(const std::string& operation, std::initializer_list<int> errors);
    void failAlways(const std::string& operation, int error) { failsAlways_[operation] = error; }

    /// Lets linx_get_name know the name of `spid`.
    void knows(LinxSpid spid, const std::string& name) { names_[spid] = name; }

    /// Has hunts for `name` answered by these spids in turn, and then by the last one always.
    void answers(const std::string& name, std::initializer_list<LinxSpid> spids) { hunted_[name] = spids; }

    /// Queues a signal, and returns what it is called in the recorded calls.
    std::string arrive(LinxSpid from, std::uint32_t number, const std::string& payload = "");

    /// Drops the queued signals, and the failures that have not happened yet.
    void forgetWhatWasToCome();

    /// Makes a signal for the test, as if it had been received.
    LinxSignal* signal(std::uint32_t number, const std::string& payload);

    // For the operations

    struct Buffer {
        std::string id;
        LinxSpid sender = 0;
        std::uint32_t size = 0;
        bool inHand = false;
        std::unique_ptr<char[]>
            bytes;  // exactly as long as the signal, so that a sanitizer sees every access beyond it
        LinxSignal* head() const { return reinterpret_cast<LinxSignal*>(bytes.get()); }
    };

    LINX* open(const char* name);
    void call(LINX* linx, const std::string& text);
    bool fails(const std::string& operation);
    Buffer& make(LinxSpid sender, std::uint32_t number, std::uint32_t size);
    Buffer* find(const LinxSignal* signal);
    std::string id(LinxSignal** signal);
    void take(LinxSignal** signal);
    int receive(LinxSignal** signal, const std::uint32_t* selection, bool timed);
    void hunt(const std::string& name);
    const std::string* nameOf(LinxSpid spid) const;
    unsigned newStamp(int milliseconds);
    int timeLeft(unsigned stamp);
    LinxRef newReference() { return ++lastReference_; }
    bool ownsDescriptor(int number) const { return descriptors_.count(number) != 0; }
    void exposeDescriptor() { descriptors_.insert(descriptor); }

private:
    std::vector<std::string> calls_;
    std::map<std::string, std::deque<int>> failures_;
    std::map<std::string, int> failsAlways_;
    std::map<LinxSpid, std::string> names_;
    std::map<std::string, std::deque<LinxSpid>> hunted_;
    std::list<Buffer> buffers_;
    std::deque<LinxSignal*> queue_;
    std::deque<std::string> handles_;
    std::set<int> descriptors_;
    std::map<unsigned, int> stamps_;
    unsigned lastSignal_ = 0;
    unsigned lastStamp_ = 1000;
    LinxRef lastReference_ = 500;
};

}  // namespace recording

#endif
