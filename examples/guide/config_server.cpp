// config_server: answers with settings. config_server KEY: withholds the answer about that key until the next
// question.
#include <cerrno>
#include <cstring>
#include <iostream>
#include <map>
#include <optional>
#include <string>

#include "ipc/linxIpc.h"
#include "payload.h"
#include "settings.h"

struct Withheld {
    std::string asker;
    Question question;
};

struct Server {
    std::map<std::string, std::string> settings{{"colour", "blue"}, {"size", "7"}};
    std::string slowKey;
    std::optional<Withheld> withheld;
};

static std::string keyOf(const Question& question) {
    return std::string(question.key, strnlen(question.key, sizeof question.key));
}

static void answer(LinxIpc* endpoint, const Server& server, const std::string& asker, const Question& question) {
    Answer answer{question.number, ""};
    const auto found = server.settings.find(keyOf(question));
    if (found != server.settings.end()) found->second.copy(answer.value, sizeof answer.value - 1);
    IpcMessage reply;
    pack(reply, setting, answer);
    endpoint->Notify(asker, reply, false);  // one that has ended in the meantime is no error
}

static void onQuestion(LinxIpc* endpoint, void* userData) {
    Server& server = *static_cast<Server*>(userData);
    Question question;
    if (!unpack(endpoint->rxMessage, question)) return;
    const std::string asker = endpoint->rxMessage.GetSender();
    if (server.withheld) answer(endpoint, server, server.withheld->asker, server.withheld->question);
    server.withheld.reset();
    if (server.slowKey == keyOf(question)) {
        server.withheld = {asker, question};
        std::cout << "an answer is withheld" << std::endl;
    } else {
        answer(endpoint, server, asker, question);
    }
}

int main(int count, char** arguments) {
    Server server;
    if (count > 1) server.slowKey = arguments[1];
    LinxIpc endpoint("ConfigMgr");
    endpoint.RegisterHandler(getSetting, onQuestion, &server);
    if (endpoint.Init() != 0) return 1;
    std::cout << "ready" << std::endl;
    int result = 0;
    while (result == 0) result = endpoint.Receive(-1, 0, LinxIpc::emptyString, nullptr);
    return result == ESHUTDOWN ? 0 : 1;
}
