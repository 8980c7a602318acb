// SPDX-License-Identifier: MIT
#ifndef LINXIPC_TESTING_RECORDINGPLATFORM_H
#define LINXIPC_TESTING_RECORDINGPLATFORM_H

#include <chrono>
#include <cstdint>
#include <deque>
#include <initializer_list>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/linx.h"

namespace linx::testing {

/// A signal that was given to `linx_send`.
struct SentSignal {
    LinxSpid to;           // its receiver
    std::uint32_t number;  // its number, which is the type of the message
    std::string payload;   // the bytes behind the number
    std::string bytes;     // all of them, the number word included
    int error;             // the errno with which `linx_send` failed, 0 when it did not
};

/// A line that was logged.
struct LogLine {
    unsigned level;       // the one bit of the level mask
    std::string process;  // on whose behalf
    std::string text;     // what was written into it
    bool streamFailed;    // whether the line was cut short because something in it could not be written
};

/// The platform for tests of a single process: a program links `linxipc::testing` in place of a platform, and its
/// endpoints then run without shared memory, other processes and time. It does next to nothing by itself: it records
/// every call of the LINX operations, of the log, of `DiffTime` and of the watchdog, and answers as the test has told
/// it to.
///
/// Nothing waits. A receive that finds none of the signals that it selects lets its time limit pass on the clock of
/// the platform, which nothing else moves but `advance`; what is due within that time arrives. A receive without a
/// limit, which would wait for ever then, fails with EDEADLK: so ends a main loop that has nothing left to do.
///
/// Handles and signals that are not the program's, or no longer, are refused with EINVAL. The payload of a signal
/// that `linx_alloc` gave is full of question marks. A peer exists as far as the test says, and no operation has a
/// limit but the size of signals.
///
/// Nothing that is sent arrives anywhere, not even at an endpoint of the program itself: it is in `sent`. All the
/// program's endpoints take from one queue; only answers to hunts, time-outs and notices go to who asked for them.
///
/// Every program has one, which is never destroyed, so that endpoints of any lifetime can close. Threads: it is not
/// locked. The test, and the endpoints that it tests, use it from one thread at a time.
///
/// No call of the test is recorded but `note`. Memory that runs out throws `std::bad_alloc`, wrong arguments throw
/// `std::invalid_argument` as said below; nothing else throws. References and pointers are valid until `reset`.
class RecordingPlatform {
public:
    /// The one of this program.
    static RecordingPlatform& instance();

    RecordingPlatform(const RecordingPlatform&) = delete;
    RecordingPlatform& operator=(const RecordingPlatform&) = delete;

    /// Forgets everything: what was recorded, what was arranged, every setting; the clock stands at 0, and numbers
    /// begin anew. Every test begins with that. All signals are freed. An endpoint that was opened before may still
    /// be closed; all else on it is EINVAL.
    void reset();

    // Who is there. Peers are told by spids: 1 is the endpoint that was opened first, those that are handed out here
    // begin with 100, and those between are the test's own to choose.

    /// From now on a peer of that name is there, under a spid of its own, which is returned: hunts find it, those
    /// too that were in vain before, and its spid is known by that name. A peer that is there already has been
    /// started anew, and the earlier one has ended.
    LinxSpid addPeer(const std::string& name);

    /// The peer ends: hunts find it no longer, sending to it fails with ECONNRESET, and the notices that were asked
    /// for with `linx_attach` arrive, as they will at once from now on. Its name stays known. Throws
    /// `std::invalid_argument` when no such peer was added, or has ended.
    void endPeer(const std::string& name);

    /// Lets `linx_get_name` know the name of `spid`, and nothing more. What is not known is ESRCH.
    void setName(LinxSpid spid, const std::string& name);

    /// Has hunts for `name` answered by these spids in turn, and then by the last one always; by none when there are
    /// none. It replaces what `addPeer` has arranged for the name.
    void answerHunts(const std::string& name, std::initializer_list<LinxSpid> spids);

    // What arrives

    /// Queues a signal behind those that have arrived. Returns what it is called in the recorded calls: "s1".
    std::string arrive(LinxSpid from, std::uint32_t number, const std::string& payload = "");

    /// The same once the clock has gone on by `delay`. Throws `std::invalid_argument` when that is negative.
    std::string arriveAfter(std::chrono::milliseconds delay, LinxSpid from, std::uint32_t number,
                            const std::string& payload = "");

    /// Makes a signal for the test, as if the program had received it from itself: it belongs to whoever sends it,
    /// frees it or hands it over.
    LinxSignal* makeSignal(std::uint32_t number, const std::string& payload = "");

    // What fails

    /// The next calls of `operation`, such as "linx_send", fail with these errno values, one each; 0 lets one
    /// through. They follow those of earlier calls of `fail`. A call that fails returns what platform/linx.h says,
    /// and takes the signals that are taken also on failure. Throws `std::invalid_argument` when `operation` is none
    /// of the fifteen.
    void fail(const std::string& operation, std::initializer_list<int> errors);

    /// All calls of `operation` fail with `error` that `fail` does not tell about; with 0 they no longer do. Throws
    /// as `fail`.
    void failAlways(const std::string& operation, int error);

    /// Drops the signals that have arrived or are yet to, pending time-outs and hunts included, and the failures that
    /// have not happened. Peers and settings stay.
    void cancelArrangements();

    // The clock, on which `DiffTime` and time-outs run

    /// How long the clock has gone since `reset`.
    std::chrono::milliseconds now() const;

    /// Turns the clock on by `time`. Time-outs and signals that are due then arrive, in the order of their times.
    /// Throws `std::invalid_argument` when `time` is negative.
    void advance(std::chrono::milliseconds time);

    /// What `DiffTime::ReCalcTimeout` returns next, one each, whatever the clock says. Empty: what the clock says.
    std::deque<int> timesLeft;

    // What happened

    /// The calls in their order that have been recorded since they were last taken, each as a line:
    /// - "linx_send(s1, 7)": an operation with its arguments, and behind " = " the signal or reference that was new.
    ///   Signals are called s1, s2, ... in the order in which they are made, also those that arrive; "null" is none,
    ///   "foreign" one that there is not. A selection is listed with its count: {1, 300}; {0} is any signal.
    /// - "[Other]linx_close", "[null]linx_cancel_tmo(0)": on another handle than the one that was opened first, by
    ///   its name; "[foreign]" is one that there never was
    /// - "log 2 linxIpc:700 ...": the level and the text of a line of the log
    /// - "PetWatchdog", "CalcInitialTimeout(500) = 1001", "ReCalcTimeout(1001)"
    /// - whatever `note` added
    std::vector<std::string> takeCalls();

    /// Adds a line of the test's own to the calls: what a handler was called for, say.
    void note(const std::string& line);

    std::vector<SentSignal> sent;  // each signal that was given to linx_send. May be cleared
    std::vector<LogLine> logs;     // each line that was logged. May be cleared

    /// The signals that the program has received or allocated and neither sent, freed nor handed over: it holds them,
    /// or has lost them.
    std::set<std::string> signalsInHand() const;

    /// The names from `linx_get_name` that have not been given back.
    unsigned namesInHand() const;

    /// What a signal is called in the recorded calls: "s1", "null" or "foreign".
    std::string nameOf(const LinxSignal* signal) const;

    /// The number and the payload of a signal: "300 'abcd'". "no signal" when there is no such signal.
    std::string describe(const LinxSignal* signal) const;

    unsigned signalsAllocated = 0;  // by linx_alloc
    unsigned signalsFreed = 0;      // by linx_free_buf
    unsigned logObjects = 0;        // objects of SysLogMsg that were made, also those that have written nothing
    unsigned endlessWaits = 0;      // receives that failed with EDEADLK

    // Settings, to be changed at any time

    unsigned level = 0xFFFFFFFF;              // LogClient::Level
    std::string processName = "TestProcess";  // LogClient::ProcessName
    bool recordsLogObjects = false;           // "SysLogMsg", "Log(2, TestProcess)", "~SysLogMsg" become calls, too
    int watchdogResult = 0;                   // what PetWatchdog returns

    /// What `linx_cancel_tmo` returns, leaving the reference as it is. Unset: 0, and the reference becomes 0, when it
    /// is that of a time-out that has not been received, else -1 with EINVAL.
    std::optional<int> cancelResult;

    /// The number that `linx_get_descriptor` returns. Unset: a descriptor that can be polled, readable exactly while
    /// there is something to be received; as on any platform it belongs to whoever asked for it.
    std::optional<int> descriptor;

    /// Whether `linx_alloc` writes the number into the signal, as the one on stock Linux does. A platform need not.
    bool allocWritesNumber = true;

    /// How many words are listed behind a selection's count of 0. They mean nothing; this is for programs that have
    /// such words, and tests that look at them.
    unsigned wordsBehindZero = 0;

    /// Whether the platform is at work on this thread, inside of an operation. For a program whose own `new` fails on
    /// purpose: it spares the platform while this is true. Any thread may ask.
    static bool atWork();

private:
    RecordingPlatform() = default;
    RecordingPlatform& operator=(RecordingPlatform&&) = default;
};

}  // namespace linx::testing

#endif
