#ifndef LINXIPC_TESTS_TESTING_FIXTURE_H
#define LINXIPC_TESTS_TESTING_FIXTURE_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <string>

#include "platform/linx.h"
#include "testing/RecordingPlatform.h"

using linx::testing::RecordingPlatform;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using namespace std::chrono_literals;

/// Tests of an open endpoint; the call that opened it is not recorded.
class PlatformTest : public ::testing::Test {
protected:
    PlatformTest() {
        platform.reset();
        self = linx_open("Self", 0, nullptr);
        platform.takeCalls();
    }

    /// What `endpoint` receives, and in vain what it would have to wait for: "300 'abcd' from 7", "nothing" or
    /// "error 35".
    std::string receive(LINX* endpoint, const std::uint32_t* selection = any) {
        return received(linx_receive(endpoint, &signal, selection), endpoint);
    }
    std::string receiveWithin(std::uint32_t milliseconds, const std::uint32_t* selection = any) {
        return received(linx_receive_w_tmo(self, &signal, milliseconds, selection), self);
    }

    std::string received(int size, LINX* endpoint) {
        if (size == -1) return "error " + std::to_string(errno);
        if (size == 0) return "nothing";
        const LinxSpid sender = linx_sender(endpoint, &signal);
        std::string text = platform.describe(signal) + " from " + std::to_string(sender);
        linx_free_buf(endpoint, &signal);
        return text;
    }

    static constexpr std::uint32_t any[] = {0};

    RecordingPlatform& platform = RecordingPlatform::instance();
    LINX* self = nullptr;
    LinxSignal* signal = nullptr;
};

#endif
