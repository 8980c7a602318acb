#ifndef LINXIPC_TESTS_LIBRARY_FIXTURE_H
#define LINXIPC_TESTS_LIBRARY_FIXTURE_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "interposed.h"
#include "ipc/linxIpc.h"
#include "testing/RecordingPlatform.h"

using linx::testing::RecordingPlatform;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// The message as text: "300 from Peer 'payload'".
inline std::string described(IpcMessage& message) {
    const std::string payload = message.DataPtr() != nullptr ? std::string(message.DataPtr(), message.Length()) : "";
    return std::to_string(message.MsgType()) + " from " + message.GetSender() + " '" + payload + "'";
}

/// A handler that notes its user data, which is a name, and the message in `rxMessage`.
inline void noteMessage(LinxIpc* endpoint, void* userData) {
    RecordingPlatform::instance().note(std::string(static_cast<const char*>(userData)) + ": " +
                                       described(endpoint->rxMessage));
}

/// The same for `relayMessage`.
inline void noteRelay(LinxIpc* endpoint, void* userData) {
    RecordingPlatform::instance().note(std::string(static_cast<const char*>(userData)) + ": " +
                                       described(endpoint->relayMessage));
}

/// A name as user data for handlers.
inline void* named(const char* name) {
    return const_cast<char*>(name);
}

/// The four bytes of a word, as a signal carries them.
inline std::string word(std::int32_t value) {
    return std::string(reinterpret_cast<const char*>(&value), sizeof value);
}

/// Tests that begin with nothing recorded, and in which no receive waits for ever.
class LibraryTest : public ::testing::Test {
protected:
    LibraryTest() { resetPlatform(); }
    ~LibraryTest() override { expectNoEndlessWait(); }

    void resetPlatform() {
        expectNoEndlessWait();
        platform.reset();
        platform.wordsBehindZero = 3;  // the selections of an endpoint always have four words
        interposed::reset();
        exposeDescriptor(4711);
    }

    /// The next endpoint is given this descriptor, and its closing becomes one of the recorded calls.
    void exposeDescriptor(int number) {
        platform.descriptor = number;
        interposed::recordClosing(number);
    }

    void expectNoEndlessWait() { EXPECT_EQ(platform.endlessWaits, 0u); }

    RecordingPlatform& platform = RecordingPlatform::instance();
};

/// Tests of an open endpoint; the calls that opened it are not recorded.
class EndpointTest : public LibraryTest {
protected:
    EndpointTest() {
        endpoint.Init();
        platform.takeCalls();
    }

    LinxIpc endpoint{"Self"};
    LinxIpc unopened{"Unopened"};
};

#endif
