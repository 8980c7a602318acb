// Passes each job on to one of the workers that have said that they are available, in turn.
#include <algorithm>
#include <cerrno>
#include <iostream>
#include <string>
#include <vector>

#include "ipc/linxIpc.h"
#include "jobs.h"

constexpr unsigned workerHasEnded = 2410;

struct Dispatcher {
    std::vector<std::string> workers;
    std::size_t next = 0;
};

static void admit(LinxIpc* endpoint, void* userData) {
    const std::string& worker = endpoint->rxMessage.GetSender();
    if (endpoint->Attach(worker.c_str(), workerHasEnded) != 0) return;
    static_cast<Dispatcher*>(userData)->workers.push_back(worker);
    std::cout << worker << " is available" << std::endl;
}

static void dismiss(LinxIpc* endpoint, void* userData) {
    std::vector<std::string>& workers = static_cast<Dispatcher*>(userData)->workers;
    const std::string& worker = endpoint->rxMessage.GetSender();
    const auto found = std::find(workers.begin(), workers.end(), worker);
    if (found != workers.end()) workers.erase(found);
    std::cout << worker << " has ended" << std::endl;
}

static void passOn(LinxIpc* endpoint, void* userData) {
    Dispatcher& dispatcher = *static_cast<Dispatcher*>(userData);
    for (std::size_t left = dispatcher.workers.size(); left > 0; --left) {
        const std::string& worker = dispatcher.workers[dispatcher.next++ % dispatcher.workers.size()];
        if (endpoint->Relay(endpoint->relayMessage, worker) == 0) return;
    }
    std::cout << "nobody can do a job" << std::endl;
}

int main() {
    Dispatcher dispatcher;
    LinxIpc endpoint("Dispatcher");
    endpoint.RegisterHandler(available, admit, &dispatcher);
    endpoint.RegisterHandler(workerHasEnded, dismiss, &dispatcher);
    endpoint.RegisterRelayHandler(job, passOn, &dispatcher);
    if (endpoint.Init() != 0) return 1;
    std::cout << "ready" << std::endl;
    int result = 0;
    while (result == 0) result = endpoint.Receive(-1, 0, LinxIpc::emptyString, nullptr);
    return result == ESHUTDOWN ? 0 : 1;
}
