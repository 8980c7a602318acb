// worker NAME: does the jobs that the dispatcher has for it.
#include <cerrno>
#include <cstring>
#include <string>

#include "ipc/linxIpc.h"
#include "jobs.h"
#include "payload.h"

static void work(LinxIpc* endpoint, void*) {
    Job task;
    if (!unpack(endpoint->rxMessage, task)) return;
    IpcMessage done;
    pack(done, jobDone, JobDone{task.number});
    endpoint->Notify(std::string(task.client, strnlen(task.client, sizeof task.client)), done, false);
}

int main(int count, char** arguments) {
    if (count != 2) return 2;
    LinxIpc endpoint(arguments[1]);
    endpoint.RegisterHandler(job, work, nullptr);
    IpcMessage announcement;
    announcement.Allocate(available, 0, nullptr);
    if (endpoint.Init() != 0 || endpoint.Notify("Dispatcher", announcement, true) != 0) return 1;
    int result = 0;
    while (result == 0) result = endpoint.Receive(-1, 0, LinxIpc::emptyString, nullptr);
    return result == ESHUTDOWN ? 0 : 1;
}
