// Two endpoints of one process that know each other: rounds of a burst of Notify calls, then as many Receive calls.
#include <cstdlib>
#include <iostream>

#include "bench/harness/workspace.h"
#include "ipc/linxIpc.h"

namespace {

constexpr unsigned type = 2000;
constexpr unsigned payload = 64;

void count(LinxIpc*, void* handled) {
    ++*static_cast<unsigned*>(handled);
}

bool run(unsigned rounds, unsigned burst) {
    LinxIpc sender("sender"), receiver("receiver");
    unsigned handled = 0;
    receiver.RegisterHandler(type, count, &handled);
    IpcMessage message;
    char text[payload] = {};
    message.Allocate(type, payload, text);
    if (sender.Init() != 0 || receiver.Init() != 0) return false;
    const std::string destination = "receiver";
    for (unsigned round = 0; round < rounds; ++round) {
        for (unsigned i = 0; i < burst; ++i) sender.Notify(destination, message, true);
        for (unsigned i = 0; i < burst; ++i) receiver.Receive(-1, 0, LinxIpc::emptyString, nullptr);
    }
    return handled == rounds * burst;
}

unsigned number(const char* text) {
    return static_cast<unsigned>(std::strtoul(text, nullptr, 10));
}

}  // namespace

int main(int count, char** arguments) {
    if (count != 3) {
        std::cerr << "usage: linx-instructions ROUNDS BURST\n";
        return 2;
    }
    const bench::Workspace workspace;
    return run(number(arguments[1]), number(arguments[2])) ? 0 : 1;
}
