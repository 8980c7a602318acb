#include "recording_platform.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <sstream>
#include <utility>

#include "platform/DiffTime.h"
#include "platform/LogClient.h"
#include "platform/Watchdog.h"
#include "tests/support/failing_new.h"

struct LINX {
    std::string name;
};

using linxtest::UnfailingNew;

namespace recording {

namespace {

std::deque<LINX>& Handles() {
    static std::deque<LINX> handles;
    return handles;
}

bool Selects(const std::uint32_t* selection, std::uint32_t number) {
    if (selection[0] == 0) return true;
    for (std::uint32_t i = 1; i <= selection[0]; ++i) {
        if (selection[i] == number) return true;
    }
    return false;
}

std::string Quoted(const char* text) {
    return text != nullptr ? "\"" + std::string(text) + "\"" : "null";
}

/// All words of the selection. One for any signal has a count of 0, and the library puts three words behind it too.
std::string Listed(const std::uint32_t* selection) {
    const std::uint32_t behind = selection[0] != 0 ? selection[0] : 3;
    std::string text = "{" + std::to_string(selection[0]);
    for (std::uint32_t i = 1; i <= behind; ++i) text += ", " + std::to_string(selection[i]);
    return text + "}";
}

Platform& platform = Platform::Instance();

}  // namespace

Platform& Platform::Instance() {
    static Platform instance;
    return instance;
}

void Platform::Reset() {
    *this = Platform();
    Handles().clear();
    errno = 0;
}

std::vector<std::string> Platform::Calls() {
    return std::exchange(calls, {});
}

void Platform::Note(const std::string& call) {
    const UnfailingNew ours;
    calls.push_back(call);
}

std::set<std::string> Platform::SignalsInHand() const {
    std::set<std::string> ids;
    for (const Buffer& buffer : buffers) {
        if (buffer.inHand) ids.insert(buffer.id);
    }
    return ids;
}

std::string Platform::Content(const LinxSignal* signal) const {
    for (const Buffer& buffer : buffers) {
        if (buffer.Head() != signal) continue;
        return std::to_string(signal->number) + " '" + std::string(&buffer.bytes[4], buffer.size - 4) + "'";
    }
    return "no signal";
}

void Platform::Fail(const std::string& operation, std::initializer_list<int> errors) {
    std::deque<int>& pending = failures[operation];
    pending.insert(pending.end(), errors);
}

std::string Platform::Arrive(LinxSpid from, std::uint32_t number, const std::string& payload) {
    Buffer& buffer = Make(from, number, static_cast<std::uint32_t>(payload.size()) + 4);
    payload.copy(&buffer.bytes[4], payload.size());
    queue.push_back(buffer.Head());
    return buffer.id;
}

void Platform::ForgetWhatWasToCome() {
    for (LinxSignal* queued : std::exchange(queue, {})) Take(&queued);
    failures.clear();
    failsAlways.clear();
}

LinxSignal* Platform::Signal(std::uint32_t number, const std::string& payload) {
    Buffer& buffer = Make(1, number, static_cast<std::uint32_t>(payload.size()) + 4);
    payload.copy(&buffer.bytes[4], payload.size());
    buffer.inHand = true;
    return buffer.Head();
}

LINX* Platform::Open(const char* name) {
    return &Handles().emplace_back(LINX{name});
}

void Platform::Call(LINX* linx, const std::string& text) {
    std::string handle;
    if (linx == nullptr) {
        handle = "[null]";
    } else if (linx != &Handles().front()) {
        handle = "[" + linx->name + "]";
    }
    calls.push_back(handle + text);
}

bool Platform::Fails(const std::string& operation) {
    int error = 0;
    std::deque<int>& pending = failures[operation];
    if (!pending.empty()) {
        error = pending.front();
        pending.pop_front();
    } else if (const auto always = failsAlways.find(operation); always != failsAlways.end()) {
        error = always->second;
    }
    if (error == 0) return false;
    errno = error;
    return true;
}

Platform::Buffer& Platform::Make(LinxSpid sender, std::uint32_t number, std::uint32_t size) {
    Buffer& buffer = buffers.emplace_back();
    buffer.id = "s" + std::to_string(++lastSignal);
    buffer.sender = sender;
    buffer.size = size;
    buffer.bytes.reset(new char[size]);
    std::memset(buffer.bytes.get(), '?', size);
    buffer.Head()->number = number;
    return buffer;
}

Platform::Buffer* Platform::Find(const LinxSignal* signal) {
    for (Buffer& buffer : buffers) {
        if (buffer.Head() == signal) return &buffer;
    }
    return nullptr;
}

std::string Platform::Id(LinxSignal** signal) {
    if (signal == nullptr || *signal == nullptr) return "null";
    const Buffer* buffer = Find(*signal);
    return buffer != nullptr ? buffer->id : "foreign";
}

void Platform::Take(LinxSignal** signal) {
    const LinxSignal* taken = std::exchange(*signal, nullptr);
    buffers.remove_if([taken](const Buffer& buffer) { return buffer.Head() == taken; });
}

int Platform::Receive(LinxSignal** signal, const std::uint32_t* selection, bool timed) {
    *signal = nullptr;
    for (auto next = queue.begin(); next != queue.end(); ++next) {
        if (!Selects(selection, (*next)->number)) continue;
        Buffer& buffer = *Find(*next);
        queue.erase(next);
        buffer.inHand = true;
        *signal = buffer.Head();
        return static_cast<int>(buffer.size);
    }
    if (timed) return 0;
    ADD_FAILURE() << "a receive without limit would wait forever";
    errno = EDEADLK;
    return -1;
}

void Platform::Hunt(const std::string& name) {
    std::deque<LinxSpid>& spids = hunted[name];
    if (spids.empty()) return;
    Arrive(spids.front(), LINX_OS_HUNT_SIG);
    if (spids.size() > 1) spids.pop_front();
}

const std::string* Platform::NameOf(LinxSpid spid) const {
    const auto known = names.find(spid);
    return known != names.end() ? &known->second : nullptr;
}

unsigned Platform::NewStamp(int milliseconds) {
    stamps[++lastStamp] = milliseconds;
    return lastStamp;
}

int Platform::TimeLeft(unsigned stamp) {
    if (timesLeft.empty()) return stamps[stamp];
    const int left = timesLeft.front();
    timesLeft.pop_front();
    return left;
}

}  // namespace recording

using recording::Listed;
using recording::platform;
using recording::Quoted;

LINX* linx_open(const char* name, std::uint32_t options, void* argument) {
    const UnfailingNew ours;
    LINX* linx = platform.Fails("linx_open") ? nullptr : platform.Open(name);
    platform.Note("linx_open(" + Quoted(name) + ", " + std::to_string(options) + ", " +
                  (argument == nullptr ? "null" : "argument") + ")");
    return linx;
}

int linx_get_descriptor(LINX* linx) {
    const UnfailingNew ours;
    platform.Call(linx, "linx_get_descriptor");
    platform.ExposeDescriptor();
    return platform.descriptor;
}

int linx_close(LINX* linx) {
    const UnfailingNew ours;
    platform.Call(linx, "linx_close");
    return 0;
}

int linx_hunt(LINX* linx, const char* name, LinxSignal** huntSignal) {
    const UnfailingNew ours;
    platform.Call(linx, "linx_hunt(" + Quoted(name) + ", " + platform.Id(huntSignal) + ")");
    if (platform.Fails("linx_hunt")) return -1;
    platform.Hunt(name);
    return 0;
}

LinxRef linx_attach(LINX* linx, LinxSignal** notice, LinxSpid spid) {
    const UnfailingNew ours;
    platform.Call(linx, "linx_attach(" + platform.Id(notice) + ", " + std::to_string(spid) + ")");
    platform.Take(notice);
    return platform.Fails("linx_attach") ? 0 : platform.NewReference();
}

LinxSignal* linx_alloc(LINX* linx, std::uint32_t size, std::uint32_t number) {
    const UnfailingNew ours;
    const std::string call = "linx_alloc(" + std::to_string(size) + ", " + std::to_string(number) + ")";
    if (platform.Fails("linx_alloc")) {
        platform.Call(linx, call + " = null");
        return nullptr;
    }
    recording::Platform::Buffer& buffer = platform.Make(1, platform.leavesNumbersOut ? 0xBAD : number, size);
    buffer.inHand = true;
    ++platform.buffersAllocated;
    platform.Call(linx, call + " = " + buffer.id);
    return buffer.Head();
}

int linx_free_buf(LINX* linx, LinxSignal** signal) {
    const UnfailingNew ours;
    platform.Call(linx, "linx_free_buf(" + platform.Id(signal) + ")");
    if (signal == nullptr || platform.Find(*signal) == nullptr) {
        errno = EINVAL;
        return -1;
    }
    ++platform.buffersFreed;
    platform.Take(signal);
    return 0;
}

int linx_send(LINX* linx, LinxSignal** signal, LinxSpid to) {
    const UnfailingNew ours;
    platform.Call(linx, "linx_send(" + platform.Id(signal) + ", " + std::to_string(to) + ")");
    const recording::Platform::Buffer* buffer = platform.Find(*signal);
    if (buffer == nullptr) {
        errno = EINVAL;
        return -1;
    }
    const std::string bytes(buffer->bytes.get(), buffer->size);
    platform.sent.push_back({to, buffer->Head()->number, bytes.substr(4), bytes});
    platform.Take(signal);
    return platform.Fails("linx_send") ? -1 : 0;
}

int linx_receive(LINX* linx, LinxSignal** signal, const std::uint32_t* selection) {
    const UnfailingNew ours;
    platform.Call(linx, "linx_receive(" + Listed(selection) + ")");
    if (platform.Fails("linx_receive")) return -1;
    return platform.Receive(signal, selection, false);
}

int linx_receive_w_tmo(LINX* linx, LinxSignal** signal, std::uint32_t milliseconds, const std::uint32_t* selection) {
    const UnfailingNew ours;
    platform.Call(linx, "linx_receive_w_tmo(" + std::to_string(milliseconds) + ", " + Listed(selection) + ")");
    if (platform.Fails("linx_receive_w_tmo")) return -1;
    return platform.Receive(signal, selection, true);
}

LinxSpid linx_sender(LINX* linx, LinxSignal** signal) {
    const UnfailingNew ours;
    platform.Call(linx, "linx_sender(" + platform.Id(signal) + ")");
    const recording::Platform::Buffer* buffer = platform.Find(*signal);
    return buffer != nullptr ? buffer->sender : 0;
}

int linx_get_name(LINX* linx, LinxSpid spid, char** name) {
    const UnfailingNew ours;
    platform.Call(linx, "linx_get_name(" + std::to_string(spid) + ")");
    const std::string* known = platform.NameOf(spid);
    if (known == nullptr) {
        errno = ESRCH;
        return -1;
    }
    ++platform.namesHandedOut;
    *name = strdup(known->c_str());
    return 0;
}

int linx_free_name(LINX* linx, char** name) {
    const UnfailingNew ours;
    platform.Call(linx, "linx_free_name(" + Quoted(*name) + ")");
    ++platform.namesReturned;
    std::free(std::exchange(*name, nullptr));
    return 0;
}

LinxRef linx_request_tmo(LINX* linx, std::uint32_t milliseconds, LinxSignal** signal) {
    const UnfailingNew ours;
    const std::string call = "linx_request_tmo(" + std::to_string(milliseconds) + ", " + platform.Id(signal) + ")";
    if (signal != nullptr) platform.Take(signal);
    const LinxRef reference = platform.Fails("linx_request_tmo") ? 0 : platform.NewReference();
    platform.Call(linx, call + " = " + std::to_string(reference));
    return reference;
}

int linx_cancel_tmo(LINX* linx, LinxRef* reference) {
    const UnfailingNew ours;
    platform.Call(linx, "linx_cancel_tmo(" + std::to_string(*reference) + ")");
    return platform.cancelResult;
}

unsigned DiffTime::CalcInitialTimeout(int milliseconds) {
    const UnfailingNew ours;
    const unsigned stamp = platform.NewStamp(milliseconds);
    platform.Note("CalcInitialTimeout(" + std::to_string(milliseconds) + ") = " + std::to_string(stamp));
    return stamp;
}

int DiffTime::ReCalcTimeout(unsigned stamp) {
    const UnfailingNew ours;
    platform.Note("ReCalcTimeout(" + std::to_string(stamp) + ")");
    return platform.TimeLeft(stamp);
}

int Watchdog::PetWatchdog() {
    const UnfailingNew ours;
    platform.Note("PetWatchdog");
    return platform.petResult;
}

struct LogClient::Settings {};
LogClient::LogClient() = default;
LogClient::~LogClient() = default;

LogClient* LogClient::Instance() {
    static LogClient client;
    return &client;
}

unsigned LogClient::Level() const {
    return platform.level;
}

const std::string& LogClient::ProcessName() const {
    return platform.processName;
}

struct LogMsg::Line {
    unsigned level = 0;
    std::string process;
    std::ostringstream stream;
};

LogMsg::LogMsg() = default;
LogMsg::~LogMsg() = default;

std::ostream& LogMsg::Log(unsigned level, const std::string& process) {
    line = std::make_unique<Line>();  // the only allocation here that may fail
    const UnfailingNew ours;
    if (platform.tracesLogObjects) platform.Note("Log(" + std::to_string(level) + ", " + process + ")");
    line->level = level;
    line->process = process;
    return line->stream;
}

SysLogMsg::SysLogMsg() {
    const UnfailingNew ours;
    if (platform.tracesLogObjects) platform.Note("SysLogMsg");
    ++platform.logObjects;
}

SysLogMsg::~SysLogMsg() {
    const UnfailingNew ours;
    if (platform.tracesLogObjects) platform.Note("~SysLogMsg");
    if (!line) return;
    const std::string text = line->stream.str();
    platform.logs.push_back({line->level, line->process, text, line->stream.fail()});
    platform.Note("log " + std::to_string(line->level) + " " + text);
}
