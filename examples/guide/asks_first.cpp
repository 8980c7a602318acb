// asks_first NAME OTHER: a server that asks another one before it answers. Two of them that ask each other hang.
#include <cerrno>
#include <iostream>

#include "ipc/linxIpc.h"

enum { question = 2020, answer = 2021 };

static void askFirst(LinxIpc* server, void* userData) {
    const std::string asker = server->rxMessage.GetSender();  // a copy: the answer fills rxMessage
    IpcMessage ownQuestion, itsAnswer, reply;
    ownQuestion.Allocate(question, 0, nullptr);
    server->Request(static_cast<const char*>(userData), ownQuestion, answer, -1, &itsAnswer);  // for ever
    reply.Allocate(answer, 0, nullptr);
    server->Notify(asker, reply, true);
}

int main(int count, char** arguments) {
    if (count != 3) return 2;
    LinxIpc server(arguments[1]);
    server.RegisterHandler(question, askFirst, arguments[2]);
    if (server.Init() != 0) return 1;
    std::cout << "ready" << std::endl;
    int result = 0;
    while (result == 0) result = server.Receive(-1, 0, LinxIpc::emptyString, nullptr);
    return result == ESHUTDOWN ? 0 : 1;
}
