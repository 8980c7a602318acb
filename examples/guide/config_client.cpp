// Asks for two settings. With --careless, it takes whatever answer comes.
#include <cerrno>
#include <cstring>
#include <iostream>
#include <string>

#include "ipc/linxIpc.h"
#include "payload.h"
#include "platform/DiffTime.h"
#include "settings.h"

static bool careless = false;

/// Asks for a setting and waits so long for the answer. Returns 0 or what a `Request` returns.
static int ask(LinxIpc& client, const char* key, int milliseconds, std::string& value) {
    static std::uint32_t lastNumber = 0;
    Question question{++lastNumber, ""};
    std::strncpy(question.key, key, sizeof question.key - 1);
    IpcMessage request, reply;
    pack(request, getSetting, question);

    const unsigned limit = DiffTime::CalcInitialTimeout(milliseconds);
    int result = client.Request("ConfigMgr", request, setting, milliseconds, &reply);
    Answer answer{};
    while (result == 0 && !(unpack(reply, answer) && (careless || answer.number == question.number)))
        result = client.Receive(DiffTime::ReCalcTimeout(limit), setting, "ConfigMgr", &reply);
    value.assign(answer.value, strnlen(answer.value, sizeof answer.value));
    return result;
}

static void show(LinxIpc& client, const char* key, int milliseconds) {
    std::string value;
    const int result = ask(client, key, milliseconds, value);
    std::cout << key << ": ";
    if (result == 0) {
        std::cout << (value.empty() ? "no such setting" : value) << std::endl;
    } else {
        std::cout << (result == -1 ? "no server" : std::strerror(result)) << std::endl;
    }
}

int main(int count, char**) {
    careless = count > 1;
    LinxIpc client("Settings");
    if (client.Init() != 0) return 1;
    show(client, "colour", 200);
    show(client, "size", 10000);
    return 0;
}
