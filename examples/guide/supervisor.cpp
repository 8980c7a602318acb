// supervisor ENDPOINT COMMAND...: keeps the server running that the command starts and that opens the endpoint.
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <iostream>

#include "ipc/ReservedSignal.h"
#include "ipc/linxIpc.h"

constexpr unsigned serverIsThere = 2100, serverHasEnded = 2101, serverTakesTooLong = 2102;
constexpr int startLimit = 30000, endLimit = 10000;  // milliseconds

struct Server {
    const char* endpoint;
    char** command;
    pid_t process = -1;
};

static void start(LinxIpc* supervisor, Server& server) {
    supervisor->EnableTimer(startLimit, serverTakesTooLong);
    server.process = fork();
    if (server.process != 0) return;
    execvp(server.command[0], server.command);
    _exit(127);
}

static int seek(LinxIpc* supervisor, const Server& server) {
    LinxSignal* answer = linx_alloc(supervisor->Linx(), sizeof(LinxSignal), serverIsThere);
    return answer != nullptr && linx_hunt(supervisor->Linx(), server.endpoint, &answer) == 0 ? 0 : errno;
}

/// An endpoint may end before its process does, or without it: what is left of the process is ended here.
static void bury(Server& server) {
    kill(server.process, SIGKILL);
    waitpid(server.process, nullptr, 0);
}

static void attach(LinxIpc* supervisor, void* userData) {
    const Server& server = *static_cast<Server*>(userData);
    supervisor->DisableTimer();
    supervisor->Attach(server.endpoint, serverHasEnded);
    std::cout << server.endpoint << " runs as process " << server.process << std::endl;
}

static void startAgain(LinxIpc* supervisor, void* userData) {
    Server& server = *static_cast<Server*>(userData);
    std::cout << server.endpoint << " has ended" << std::endl;
    bury(server);
    start(supervisor, server);
    seek(supervisor, server);
}

/// It has never opened its endpoint, so that it is still sought.
static void tryAgain(LinxIpc* supervisor, void* userData) {
    Server& server = *static_cast<Server*>(userData);
    std::cout << server.endpoint << " takes too long to start" << std::endl;
    bury(server);
    start(supervisor, server);
}

static void end(LinxIpc& supervisor, Server& server) {
    IpcMessage request, notice;
    request.Allocate(e_ShutdownSignal, 0, nullptr);
    if (supervisor.Notify(server.endpoint, request, true) != 0 ||
        supervisor.Receive(endLimit, serverHasEnded, LinxIpc::emptyString, &notice) != 0)
        return bury(server);
    waitpid(server.process, nullptr, 0);
    std::cout << server.endpoint << " has ended in order" << std::endl;
}

int main(int count, char** arguments) {
    if (count < 3) return 2;
    Server server{arguments[1], arguments + 2};
    LinxIpc supervisor("Supervisor");
    supervisor.RegisterHandler(serverIsThere, attach, &server);
    supervisor.RegisterHandler(serverHasEnded, startAgain, &server);
    supervisor.RegisterHandler(serverTakesTooLong, tryAgain, &server);
    if (supervisor.Init() != 0 || seek(&supervisor, server) != 0) return 1;
    start(&supervisor, server);
    int result = 0;
    while (result == 0) result = supervisor.Receive(-1, 0, LinxIpc::emptyString, nullptr);
    end(supervisor, server);
    return result == ESHUTDOWN ? 0 : 1;
}
