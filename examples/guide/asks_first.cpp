// asks_first NAME OTHER: a server that asks another one before it answers. Two of them that ask each other hang.
#include <cerrno>
#include <iostream>

#include "ipc/linxIpc.h"

enum { question = 2020, answer = 2021 };

struct State {
    const char* other;
    bool isToEnd;
};

static void askFirst(LinxIpc* server, void* userData) {
    State& state = *static_cast<State*>(userData);
    const std::string asker = server->rxMessage.GetSender();
    IpcMessage ownQuestion, itsAnswer, reply;
    ownQuestion.Allocate(question, 0, nullptr);
    const int result = server->Request(state.other, ownQuestion, answer, -1, &itsAnswer);  // without a time limit
    state.isToEnd = result == ESHUTDOWN;
    if (result != 0) return;
    reply.Allocate(answer, 0, nullptr);
    server->Notify(asker, reply, true);
}

int main(int count, char** arguments) {
    if (count != 3) return 2;
    State state{arguments[2], false};
    LinxIpc server(arguments[1]);
    server.RegisterHandler(question, askFirst, &state);
    if (server.Init() != 0) return 1;
    std::cout << "ready" << std::endl;
    int result = 0;
    while (result == 0 && !state.isToEnd) result = server.Receive(-1, 0, LinxIpc::emptyString, nullptr);
    return state.isToEnd || result == ESHUTDOWN ? 0 : 1;
}
