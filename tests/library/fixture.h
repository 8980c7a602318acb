#ifndef LINXIPC_TESTS_LIBRARY_FIXTURE_H
#define LINXIPC_TESTS_LIBRARY_FIXTURE_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "interposed.h"
#include "ipc/linxIpc.h"
#include "recording_platform.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// The message as text: "300 from Peer 'payload'".
inline std::string described(IpcMessage& message) {
    const std::string payload = message.DataPtr() != nullptr ? std::string(message.DataPtr(), message.Length()) : "";
    return std::to_string(message.MsgType()) + " from " + message.GetSender() + " '" + payload + "'";
}

/// A handler that notes its user data, which is a name, and the message in `rxMessage`.
inline void noteMessage(LinxIpc* endpoint, void* userData) {
    recording::Platform::instance().note(std::string(static_cast<const char*>(userData)) + ": " +
                                         described(endpoint->rxMessage));
}

/// The same for `relayMessage`.
inline void noteRelay(LinxIpc* endpoint, void* userData) {
    recording::Platform::instance().note(std::string(static_cast<const char*>(userData)) + ": " +
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

/// Tests that begin with nothing recorded.
class LibraryTest : public ::testing::Test {
protected:
    LibraryTest() {
        platform.reset();
        interposed::refusesArrays = false;
    }

    recording::Platform& platform = recording::Platform::instance();
};

/// Tests of an open endpoint; the calls that opened it are not recorded.
class EndpointTest : public LibraryTest {
protected:
    EndpointTest() {
        endpoint.Init();
        platform.calls();
    }

    LinxIpc endpoint{"Self"};
    LinxIpc unopened{"Unopened"};
};

#endif
