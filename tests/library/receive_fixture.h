#ifndef LINXIPC_TESTS_LIBRARY_RECEIVE_FIXTURE_H
#define LINXIPC_TESTS_LIBRARY_RECEIVE_FIXTURE_H

#include <string>

#include "fixture.h"

inline const std::string nobody;

/// Tests of an endpoint that receives from peers whose names LINX knows.
class ReceiveTest : public EndpointTest {
protected:
    ReceiveTest() {
        platform.setName(7, "Peer");
        platform.setName(8, "Other");
    }

    /// Has the endpoint learn the names of both peers.
    void meetPeers() {
        for (LinxSpid spid : {7u, 8u}) {
            platform.arrive(spid, 1);
            endpoint.Receive(-1, 0, nobody, nullptr);
        }
        platform.takeCalls();
    }

    IpcMessage message;
};

#endif
