#ifndef LINXIPC_TESTS_LIBRARY_RECEIVE_FIXTURE_H
#define LINXIPC_TESTS_LIBRARY_RECEIVE_FIXTURE_H

#include <string>

#include "fixture.h"

inline const std::string nobody;

/// Tests of an endpoint that receives from peers whose names LINX knows.
class ReceiveTest : public EndpointTest {
protected:
    ReceiveTest() {
        platform.knows(7, "Peer");
        platform.knows(8, "Other");
    }

    /// Has the endpoint learn the names of both peers.
    void meetPeers() {
        for (LinxSpid spid : {7u, 8u}) {
            platform.arrive(spid, 1);
            endpoint.Receive(-1, 0, nobody, nullptr);
        }
        platform.calls();
    }

    IpcMessage message;
};

#endif
