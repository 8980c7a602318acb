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

std::deque<LINX>& handles() {
    static std::deque<LINX> handles;
    return handles;
}

bool selects(const std::uint32_t* selection, std::uint32_t number) {
    if (selection[0] == 0) return true;
    for (std::uint32_t i = 1; i <= selection[0]; ++i) {
        if (selection[i] == number) return true;
    }
    return false;
}

std::string quoted(const char* text) {
    return text != nullptr ? "\"" + std::string(text) + "\"" : "null";
}

/// All words of the selection. One for any signal has a count of 0, and the library puts three words behind it too.
std::string listed(const std::uint32_t* selection) {
    const std::uint32_t behind = selection[0] != 0 ? selection[0] : 3;
    std::string text = "{" + std::to_string(selection[0]);
    for (std::uint32_t i = 1; i <= behind; ++i) text += ", " + std::to_string(selection[i]);
    return text + "}";
}

Platform& platform = Platform::instance();

}  // namespace

Platform& Platform::instance() {
    static Platform instance;
    return instance;
}

void Platform::reset() {
    *this = Platform();
    handles().clear();
    errno = 0;
}

std::vector<std::string> Platform::calls() {
    return std::exchange(calls_, {});
}

void Platform::note(const std::string& call) {
    const UnfailingNew ours;
    calls_.push_back(call);
}

std::set<std::string> Platform::signalsInHand() const {
    std::set<std::string> ids;
    for (const Buffer& buffer : buffers_) {
        if (buffer.inHand) ids.insert(buffer.id);
    }
    return ids;
}

std::string Platform::content(const LinxSignal* signal) const {
    for (const Buffer& buffer : buffers_) {
        if (buffer.head() != signal) continue;
        return std::to_string(signal->number) + " '" + std::string(&buffer.bytes[4], buffer.size - 4) + "'";
    }
    return "no signal";
}

void Platform::fail(const std::string& operation, std::initializer_list<int> errors) {
    std::deque<int>& pending = failures_[operation];
    pending.insert(pending.end(), errors);
}

std::string Platform::arrive(LinxSpid from, std::uint32_t number, const std::string& payload) {
    Buffer& buffer = make(from, number, static_cast<std::uint32_t>(payload.size()) + 4);
    payload.copy(&buffer.bytes[4], payload.size());
    queue_.push_back(buffer.head());
    return buffer.id;
}

void Platform::forgetWhatWasToCome() {
    for (LinxSignal* queued : std::exchange(queue_, {})) take(&queued);
    failures_.clear();
    failsAlways_.clear();
}

LinxSignal* Platform::signal(std::uint32_t number, const std::string& payload) {
    Buffer& buffer = make(1, number, static_cast<std::uint32_t>(payload.size()) + 4);
    payload.copy(&buffer.bytes[4], payload.size());
    buffer.inHand = true;
    return buffer.head();
}

LINX* Platform::open(const char* name) {
    return &handles().emplace_back(LINX{name});
}

void Platform::call(LINX* linx, const std::string& text) {
    std::string handle;
    if (linx == nullptr) {
        handle = "[null]";
    } else if (linx != &handles().front()) {
        handle = "[" + linx->name + "]";
    }
    calls_.push_back(handle + text);
}

bool Platform::fails(const std::string& operation) {
    int error = 0;
    std::deque<int>& pending = failures_[operation];
    if (!pending.empty()) {
        error = pending.front();
        pending.pop_front();
    } else if (const auto always = failsAlways_.find(operation); always != failsAlways_.end()) {
        error = always->second;
    }
    if (error == 0) return false;
    errno = error;
    return true;
}

Platform::Buffer& Platform::make(LinxSpid sender, std::uint32_t number, std::uint32_t size) {
    Buffer& buffer = buffers_.emplace_back();
    buffer.id = "s" + std::to_string(++lastSignal_);
    buffer.sender = sender;
    buffer.size = size;
    buffer.bytes.reset(new char[size]);
    std::memset(buffer.bytes.get(), '?', size);
    buffer.head()->number = number;
    return buffer;
}

Platform::Buffer* Platform::find(const LinxSignal* signal) {
    for (Buffer& buffer : buffers_) {
        if (buffer.head() == signal) return &buffer;
    }
    return nullptr;
}

std::string Platform::id(LinxSignal** signal) {
    if (signal == nullptr || *signal == nullptr) return "null";
    const Buffer* buffer = find(*signal);
    return buffer != nullptr ? buffer->id : "foreign";
}

void Platform::take(LinxSignal** signal) {
    const LinxSignal* taken = std::exchange(*signal, nullptr);
    buffers_.remove_if([taken](const Buffer& buffer) { return buffer.head() == taken; });
}

int Platform::receive(LinxSignal** signal, const std::uint32_t* selection, bool timed) {
    *signal = nullptr;
    for (auto next = queue_.begin(); next != queue_.end(); ++next) {
        if (!selects(selection, (*next)->number)) continue;
        Buffer& buffer = *find(*next);
        queue_.erase(next);
        buffer.inHand = true;
        *signal = buffer.head();
        return static_cast<int>(buffer.size);
    }
    if (timed) return 0;
    ADD_FAILURE() << "a receive without limit would wait forever";
    errno = EDEADLK;
    return -1;
}

void Platform::hunt(const std::string& name) {
    std::deque<LinxSpid>& spids = hunted_[name];
    if (spids.empty()) return;
    arrive(spids.front(), LINX_OS_HUNT_SIG);
    if (spids.size() > 1) spids.pop_front();
}

const std::string* Platform::nameOf(LinxSpid spid) const {
    const auto known = names_.find(spid);
    return known != names_.end() ? &known->second : nullptr;
}

unsigned Platform::newStamp(int milliseconds) {
    stamps_[++lastStamp_] = milliseconds;
    return lastStamp_;
}

int Platform::timeLeft(unsigned stamp) {
    if (timesLeft.empty()) return stamps_[stamp];
    const int left = timesLeft.front();
    timesLeft.pop_front();
    return left;
}

}  // namespace recording

using recording::listed;
using recording::platform;
using recording::quoted;

LINX* linx_open(const char* name, std::uint32_t options, void* argument) {
    const UnfailingNew ours;
    LINX* linx = platform.fails("linx_open") ? nullptr : platform.open(name);
    platform.note("linx_open(" + quoted(name) + ", " + std::to_string(options) + ", " +
                  (argument == nullptr ? "null" : "argument") + ")");
    return linx;
}

int linx_get_descriptor(LINX* linx) {
    const UnfailingNew ours;
    platform.call(linx, "linx_get_descriptor");
    platform.exposeDescriptor();
    return platform.descriptor;
}

int linx_close(LINX* linx) {
    const UnfailingNew ours;
    platform.call(linx, "linx_close");
    return 0;
}

int linx_hunt(LINX* linx, const char* name, LinxSignal** huntSignal) {
    const UnfailingNew ours;
    platform.call(linx, "linx_hunt(" + quoted(name) + ", " + platform.id(huntSignal) + ")");
    if (platform.fails("linx_hunt")) return -1;
    platform.hunt(name);
    return 0;
}

LinxRef linx_attach(LINX* linx, LinxSignal** notice, LinxSpid spid) {
    const UnfailingNew ours;
    platform.call(linx, "linx_attach(" + platform.id(notice) + ", " + std::to_string(spid) + ")");
    platform.take(notice);
    return platform.fails("linx_attach") ? 0 : platform.newReference();
}

LinxSignal* linx_alloc(LINX* linx, std::uint32_t size, std::uint32_t number) {
    const UnfailingNew ours;
    const std::string call = "linx_alloc(" + std::to_string(size) + ", " + std::to_string(number) + ")";
    if (platform.fails("linx_alloc")) {
        platform.call(linx, call + " = null");
        return nullptr;
    }
    recording::Platform::Buffer& buffer = platform.make(1, platform.leavesNumbersOut ? 0xBAD : number, size);
    buffer.inHand = true;
    ++platform.buffersAllocated;
    platform.call(linx, call + " = " + buffer.id);
    return buffer.head();
}

int linx_free_buf(LINX* linx, LinxSignal** signal) {
    const UnfailingNew ours;
    platform.call(linx, "linx_free_buf(" + platform.id(signal) + ")");
    if (signal == nullptr || platform.find(*signal) == nullptr) {
        errno = EINVAL;
        return -1;
    }
    ++platform.buffersFreed;
    platform.take(signal);
    return 0;
}

int linx_send(LINX* linx, LinxSignal** signal, LinxSpid to) {
    const UnfailingNew ours;
    platform.call(linx, "linx_send(" + platform.id(signal) + ", " + std::to_string(to) + ")");
    const recording::Platform::Buffer* buffer = platform.find(*signal);
    if (buffer == nullptr) {
        errno = EINVAL;
        return -1;
    }
    const std::string bytes(buffer->bytes.get(), buffer->size);
    platform.sent.push_back({to, buffer->head()->number, bytes.substr(4), bytes});
    platform.take(signal);
    return platform.fails("linx_send") ? -1 : 0;
}

int linx_receive(LINX* linx, LinxSignal** signal, const std::uint32_t* selection) {
    const UnfailingNew ours;
    platform.call(linx, "linx_receive(" + listed(selection) + ")");
    if (platform.fails("linx_receive")) return -1;
    return platform.receive(signal, selection, false);
}

int linx_receive_w_tmo(LINX* linx, LinxSignal** signal, std::uint32_t milliseconds, const std::uint32_t* selection) {
    const UnfailingNew ours;
    platform.call(linx, "linx_receive_w_tmo(" + std::to_string(milliseconds) + ", " + listed(selection) + ")");
    if (platform.fails("linx_receive_w_tmo")) return -1;
    return platform.receive(signal, selection, true);
}

LinxSpid linx_sender(LINX* linx, LinxSignal** signal) {
    const UnfailingNew ours;
    platform.call(linx, "linx_sender(" + platform.id(signal) + ")");
    const recording::Platform::Buffer* buffer = platform.find(*signal);
    return buffer != nullptr ? buffer->sender : 0;
}

int linx_get_name(LINX* linx, LinxSpid spid, char** name) {
    const UnfailingNew ours;
    platform.call(linx, "linx_get_name(" + std::to_string(spid) + ")");
    const std::string* known = platform.nameOf(spid);
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
    platform.call(linx, "linx_free_name(" + quoted(*name) + ")");
    ++platform.namesReturned;
    std::free(std::exchange(*name, nullptr));
    return 0;
}

LinxRef linx_request_tmo(LINX* linx, std::uint32_t milliseconds, LinxSignal** signal) {
    const UnfailingNew ours;
    const std::string call = "linx_request_tmo(" + std::to_string(milliseconds) + ", " + platform.id(signal) + ")";
    if (signal != nullptr) platform.take(signal);
    const LinxRef reference = platform.fails("linx_request_tmo") ? 0 : platform.newReference();
    platform.call(linx, call + " = " + std::to_string(reference));
    return reference;
}

int linx_cancel_tmo(LINX* linx, LinxRef* reference) {
    const UnfailingNew ours;
    platform.call(linx, "linx_cancel_tmo(" + std::to_string(*reference) + ")");
    return platform.cancelResult;
}

unsigned DiffTime::CalcInitialTimeout(int milliseconds) {
    const UnfailingNew ours;
    const unsigned stamp = platform.newStamp(milliseconds);
    platform.note("CalcInitialTimeout(" + std::to_string(milliseconds) + ") = " + std::to_string(stamp));
    return stamp;
}

int DiffTime::ReCalcTimeout(unsigned stamp) {
    const UnfailingNew ours;
    platform.note("ReCalcTimeout(" + std::to_string(stamp) + ")");
    return platform.timeLeft(stamp);
}

int Watchdog::PetWatchdog() {
    const UnfailingNew ours;
    platform.note("PetWatchdog");
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
    if (platform.tracesLogObjects) platform.note("Log(" + std::to_string(level) + ", " + process + ")");
    line->level = level;
    line->process = process;
    return line->stream;
}

SysLogMsg::SysLogMsg() {
    const UnfailingNew ours;
    if (platform.tracesLogObjects) platform.note("SysLogMsg");
    ++platform.logObjects;
}

SysLogMsg::~SysLogMsg() {
    const UnfailingNew ours;
    if (platform.tracesLogObjects) platform.note("~SysLogMsg");
    if (!line) return;
    const std::string text = line->stream.str();
    platform.logs.push_back({line->level, line->process, text, line->stream.fail()});
    platform.note("log " + std::to_string(line->level) + " " + text);
}
