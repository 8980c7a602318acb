#ifndef LINXIPC_TESTS_TOOLS_ASKER_H
#define LINXIPC_TESTS_TOOLS_ASKER_H

#include <memory>
#include <string>

#include "tests/kit/child.h"
#include "tests/kit/endpoint.h"
#include "tests/kit/signals.h"

/// An endpoint that sends the number to `peer` when it is told whom, and then waits for the next number alone.
inline std::unique_ptr<Child> asker(const std::string& name, uint32_t number) {
    return std::make_unique<Child>([=](Line& test) {
        Endpoint endpoint(name);
        test.tell(spidOf(endpoint));
        const LinxSpid peer = test.hear();
        ASSERT_EQ(send(endpoint, peer, number), 0);
        const uint32_t answer[] = {1, number + 1};
        LinxSignal* signal = nullptr;
        ASSERT_EQ(4, linx_receive(endpoint, &signal, answer));
        linx_free_buf(endpoint, &signal);
        test.hear();
    });
}

#endif
