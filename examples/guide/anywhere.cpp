// anywhere NAME: prints what the thermometer of that name shows, on this machine or behind a link, once for each line
// that is entered. "end" ends it.
#include <cstring>
#include <iostream>
#include <string>

#include "ipc/linxIpc.h"
#include "payload.h"
#include "thermometer.h"

int main(int count, char** arguments) {
    const std::string name = count > 1 ? arguments[1] : "Thermometer";
    LinxIpc client("Anywhere");
    if (client.Init() != 0) return 1;
    for (std::string line; std::getline(std::cin, line) && line != "end";) {
        IpcMessage question, answer;
        question.Allocate(askTemperature, 0, nullptr);
        const int result = client.Request(name, question, temperature, 5000, &answer);
        Temperature now;
        if (result == 0 && unpack(answer, now)) {
            std::cout << now.milliCelsius / 1000.0 << " degrees" << std::endl;
        } else {
            std::cout << (result == -1 ? "not there" : std::strerror(result)) << std::endl;
        }
    }
    return 0;
}
