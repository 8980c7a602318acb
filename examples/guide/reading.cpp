// reading: prints the temperature. reading MILLIDEGREES: corrects the thermometer by so much, and then prints it.
#include <cstdlib>
#include <cstring>
#include <iostream>

#include "ipc/linxIpc.h"
#include "payload.h"
#include "thermometer.h"

static int fail(int result) {
    std::cerr << "no temperature: " << (result == -1 ? "there is no thermometer" : std::strerror(result))
              << std::endl;
    return 1;
}

int main(int count, char** arguments) {
    LinxIpc client("Reading");
    if (const int error = client.Init(); error != 0) return fail(error);
    if (count > 1) {
        IpcMessage correction;
        pack(correction, correct, Temperature{std::atoi(arguments[1])});
        client.Notify("Thermometer", correction, true);
    }
    IpcMessage question, answer;
    question.Allocate(askTemperature, 0, nullptr);
    if (const int result = client.Request("Thermometer", question, temperature, 5000, &answer); result != 0)
        return fail(result);
    Temperature now;
    if (!unpack(answer, now)) return 1;
    std::cout << now.milliCelsius / 1000.0 << " degrees" << std::endl;
    return 0;
}
