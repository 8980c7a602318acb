// Two processes: `hello` greets whoever asks, `hello NAME` asks to be greeted.
#include <cerrno>
#include <cstring>
#include <iostream>

#include "ipc/linxIpc.h"

constexpr unsigned greet = 2000, greeting = 2001;

static void sayHello(LinxIpc* server, void*) {
    IpcMessage& request = server->rxMessage;
    std::string text = "Hello, " + std::string(request.DataPtr(), request.Length()) + "!";
    IpcMessage answer;
    answer.Allocate(greeting, static_cast<unsigned>(text.size()), text.data());
    server->Notify(request.GetSender(), answer, true);
}

static int serve() {
    LinxIpc server("greeter");
    server.RegisterHandler(greet, sayHello, nullptr);
    if (server.Init() != 0) return 1;
    std::cout << "ready" << std::endl;
    int result = 0;
    while (result == 0) result = server.Receive(-1, 0, LinxIpc::emptyString, nullptr);
    return result == ESHUTDOWN ? 0 : 1;
}

static int ask(char* name) {
    LinxIpc client("guest");
    IpcMessage request, answer;
    request.Allocate(greet, static_cast<unsigned>(std::strlen(name)), name);
    if (client.Init() != 0 || client.Request("greeter", request, greeting, 1000, &answer) != 0) return 1;
    std::cout.write(answer.DataPtr(), answer.Length()) << std::endl;
    return 0;
}

int main(int count, char** arguments) {
    return count > 1 ? ask(arguments[1]) : serve();
}
