#include "tests/scribble/worker.h"

#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <string>

#include "tests/kit/read_all.h"
#include "tests/kit/signals.h"

namespace scribble {
namespace {

using Clock = std::chrono::steady_clock;

constexpr uint32_t greeting = 1000;  ///< plus who sends it
constexpr uint32_t found = 1100;     ///< plus who is hunted
constexpr uint32_t ended = 1200;     ///< plus who is supervised
constexpr uint32_t mostHeld = 16;

std::string nameOf(uint32_t worker) {
    return "worker" + std::to_string(worker);
}

}  // namespace

template <class Operation>
auto Worker::timed(uint32_t milliseconds, Operation operation) {
    const Clock::time_point begin = Clock::now();
    const auto result = operation();
    const auto took = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin).count();
    const uint32_t beyond = took > milliseconds ? static_cast<uint32_t>(took) - milliseconds : 0;
    uint32_t longest = ledger_.longestMilliseconds;
    while (beyond > longest && !ledger_.longestMilliseconds.compare_exchange_weak(longest, beyond)) {
    }
    ++ledger_.operations;
    return result;
}

Worker::Worker(Ledger& ledger, uint32_t index, uint32_t seed) : ledger_(ledger), index_(index), random_(seed) {
    linx_ = timed(0, [&] { return linx_open(nameOf(index).c_str(), 0, nullptr); });
}

Worker::~Worker() {
    if (linx_ != nullptr) timed(0, [&] { return linx_close(linx_); });
    if (descriptor_ != -1) close(descriptor_);
    ++ledger_.beats[index_];
}

void Worker::live() {
    if (linx_ == nullptr) {
        ++ledger_.refusedOpens;
        ::poll(nullptr, 0, 1);
        return;
    }
    for (uint32_t whom = 0; whom < workerCount; ++whom) hunt(whom);
    while (!ledger_.leave && failures_ < 20 && draw(500) != 0) {
        act();
        ++ledger_.beats[index_];
    }
}

void Worker::failed() {
    ++failures_;
    ++ledger_.failed;
}

void Worker::act() {
    const uint32_t whom = draw(workerCount);
    switch (draw(16)) {
        case 0:
            return hunt(whom);
        case 1:
            return attach(whom);
        case 2:
            return useTimers();
        case 3:
            return askForName();
        case 4:
            return poll();
        case 5:
            return relay();
        case 6: {
            const uint32_t selection[] = {2, greeting + whom, found + whom};
            return receive(draw(4), selection);
        }
        case 7:
        case 8:
            return release();
        case 9:
        case 10:
        case 11:
            return current_[whom] == 0 ? hunt(whom) : send(current_[whom]);
        default:
            return receive(draw(3), anySignal);
    }
}

void Worker::hunt(uint32_t whom) {
    LinxSignal* signal = linx_alloc(linx_, sizeof(LinxSignal), found + whom);
    const std::string name = draw(16) == 0 ? "nobody" : nameOf(whom);
    if (timed(0, [&] { return linx_hunt(linx_, name.c_str(), &signal); }) != 0) failed();
}

LinxSignal* Worker::allocate() {
    constexpr uint32_t sizes[] = {4, 36, 100, 300, 1000, 5000, 20000, 70000};
    const uint32_t size = sizes[draw(8)] + draw(4);
    LinxSignal* signal = timed(0, [&] { return linx_alloc(linx_, size, greeting + index_); });
    if (signal == nullptr) {
        failed();
    } else {
        std::memset(signal + 1, 0x5a, size - sizeof(LinxSignal));
    }
    return signal;
}

void Worker::send(LinxSpid to) {
    LinxSignal* signal = allocate();
    if (signal == nullptr) return;
    if (timed(0, [&] { return linx_send(linx_, &signal, to); }) != 0) failed();
}

LinxSignal* Worker::takeOutHeld() {
    if (held_.empty()) return nullptr;
    LinxSignal* signal = held_.back();
    held_.pop_back();
    return signal;
}

void Worker::relay() {
    LinxSignal* signal = takeOutHeld();
    if (signal == nullptr) return;
    const LinxSpid to = draw(4) == 0 ? linx_sender(linx_, &signal) : current_[draw(workerCount)];
    if (timed(0, [&] { return linx_send(linx_, &signal, to); }) != 0) failed();
}

void Worker::release() {
    LinxSignal* signal = takeOutHeld();
    if (signal == nullptr) return;
    if (timed(0, [&] { return linx_free_buf(linx_, &signal); }) != 0) failed();
}

void Worker::attach(uint32_t whom) {
    LinxSignal* notice = linx_alloc(linx_, sizeof(LinxSignal), ended + whom);
    if (timed(0, [&] { return linx_attach(linx_, &notice, current_[whom]); }) == 0) failed();
}

void Worker::receive(uint32_t milliseconds, const uint32_t* selection) {
    LinxSignal* signal = nullptr;
    const auto receiveOne = [&] { return linx_receive_w_tmo(linx_, &signal, milliseconds, selection); };
    const int size = timed(milliseconds, receiveOne);
    if (size < 0) failed();
    if (size <= 0) return;
    linxtest::readAll(signal, size);
    ++ledger_.received;
    handle(signal, size);
}

void Worker::handle(LinxSignal* signal, int size) {
    const uint32_t number = signal->number;
    if (number - found < workerCount) current_[number - found] = linx_sender(linx_, &signal);
    if (number - ended < workerCount) current_[number - ended] = 0;
    if (number - greeting < workerCount) {
        ledger_.met[index_] |= 1u << (number - greeting);
        if (size % 8 == 0) current_[number - greeting] = linx_sender(linx_, &signal);
    }
    held_.push_back(signal);
    while (held_.size() > mostHeld) release();
}

void Worker::useTimers() {
    if (draw(2) == 0 || timers_.empty()) {
        const LinxRef reference = timed(0, [&] { return linx_request_tmo(linx_, draw(20), nullptr); });
        if (reference == 0) return failed();
        timers_.push_back(reference);
        return;
    }
    timed(0, [&] { return linx_cancel_tmo(linx_, &timers_.back()); });
    timers_.pop_back();
}

void Worker::askForName() {
    char* name = nullptr;
    const LinxSpid spid = current_[draw(workerCount)];
    if (timed(0, [&] { return linx_get_name(linx_, spid, &name); }) != 0) return;
    if (std::strlen(name) <= 255) linx_free_name(linx_, &name);
}

void Worker::poll() {
    if (descriptor_ == -1) descriptor_ = linx_get_descriptor(linx_);
    pollfd readable = {descriptor_, POLLIN, 0};
    ::poll(&readable, 1, static_cast<int>(draw(3)));
    receive(0, anySignal);
}

}  // namespace scribble
