// A main loop of poll, with a signalfd for SIGTERM and SIGINT.
#include <poll.h>
#include <sys/signalfd.h>

#include <csignal>
#include <iostream>

#include "loop.h"

int main() {
    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGTERM);
    sigaddset(&ends, SIGINT);
    sigprocmask(SIG_BLOCK, &ends, nullptr);
    const int asked = signalfd(-1, &ends, SFD_CLOEXEC);

    LinxIpc server("Thermometer");
    server.RegisterHandler(askTemperature, answer, nullptr);
    if (asked == -1 || server.Init() != 0) return 1;
    std::cout << "ready" << std::endl;
    pollfd awaited[] = {{server.Descriptor(), POLLIN, 0}, {asked, POLLIN, 0}};
    int result = 0;
    while (result == 0 && poll(awaited, 2, -1) > 0 && awaited[1].revents == 0) {
        if (awaited[0].revents != 0) result = handleOne(server);
    }
    return result == 0 || result == ESHUTDOWN ? 0 : 1;
}
