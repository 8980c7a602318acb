// burst: asks the thermometer many times before it takes the first answer.
// burst PROCESS: sends that process a SIGTERM in between.
#include <csignal>
#include <cstdlib>

#include "examples/guide/thermometer.h"
#include "ipc/linxIpc.h"

int main(int arguments, char** words) {
    constexpr unsigned count = 300;
    LinxIpc client("Burst");
    if (client.Init() != 0) return 1;
    IpcMessage question;
    question.Allocate(askTemperature, 0, nullptr);
    for (unsigned asked = 0; asked < count; ++asked)
        if (client.Notify("Thermometer", question, true) != 0) return 1;
    if (arguments > 1 && kill(std::atoi(words[1]), SIGTERM) != 0) return 1;
    for (unsigned answered = 0; answered < count; ++answered)
        if (client.Receive(60000, temperature, LinxIpc::emptyString, nullptr) != 0) return 1;
    return 0;
}
