// question KEY: asks for a setting, and is told at once if the server ends over it.
#include <cerrno>
#include <cstring>
#include <iostream>

#include "ipc/linxIpc.h"
#include "payload.h"
#include "servers.h"
#include "settings.h"

int main(int count, char** arguments) {
    if (count != 2) return 2;
    Question question{1, ""};
    std::strncpy(question.key, arguments[1], sizeof question.key - 1);
    const std::string& server = nameOf(Server::configMgr);
    LinxIpc client("Question");
    IpcMessage request, reply;
    pack(request, getSetting, question);

    // The notice of its end has the number of the answer, and no payload.
    int result = client.Init();
    if (result == 0) result = client.Attach(server.c_str(), setting);
    if (result == 0) result = client.Request(server, request, setting, 600000, &reply);
    if (result == 0 && reply.Length() == 0) result = ECONNRESET;

    Answer answer;
    if (result == 0 && !unpack(reply, answer)) result = EPROTO;
    if (result == 0) {
        std::cout << std::string(answer.value, strnlen(answer.value, sizeof answer.value)) << std::endl;
    } else {
        std::cout << server << ": " << (result == -1 ? "not there" : std::strerror(result)) << std::endl;
    }
    return result == 0 ? 0 : 1;
}
