// jobs COUNT: has so many jobs done, and tells by whom.
#include "jobs.h"

#include <cstdlib>
#include <iostream>
#include <map>
#include <string>

#include "ipc/linxIpc.h"
#include "payload.h"

int main(int count, char** arguments) {
    if (count != 2) return 2;
    const unsigned jobs = static_cast<unsigned>(std::atoi(arguments[1]));
    LinxIpc client("Jobs");
    if (client.Init() != 0) return 1;
    for (unsigned number = 1; number <= jobs; ++number) {
        IpcMessage message;
        pack(message, job, Job{number, "Jobs"});
        if (client.Notify("Dispatcher", message, true) != 0) return 1;
    }
    std::map<std::string, unsigned> doneBy;
    for (unsigned left = jobs; left > 0; --left) {
        if (client.Receive(60000, jobDone, LinxIpc::emptyString, nullptr) != 0) return 1;
        ++doneBy[client.rxMessage.GetSender()];
    }
    for (const auto& [worker, done] : doneBy) std::cout << worker << " has done " << done << std::endl;
    return 0;
}
