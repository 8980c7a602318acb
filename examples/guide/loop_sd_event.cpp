// A main loop of sd-event.
#include <sys/epoll.h>
#include <systemd/sd-event.h>

#include <csignal>
#include <iostream>

#include "loop.h"

static int onReadable(sd_event_source* source, int, std::uint32_t, void* server) {
    const int result = handleOne(*static_cast<LinxIpc*>(server));
    if (result != 0) sd_event_exit(sd_event_source_get_event(source), result);
    return 0;
}

int main() {
    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGTERM);
    sigaddset(&ends, SIGINT);
    sigprocmask(SIG_BLOCK, &ends, nullptr);

    LinxIpc server("Thermometer");
    server.RegisterHandler(askTemperature, answer, nullptr);
    sd_event* event = nullptr;
    if (server.Init() != 0 || sd_event_new(&event) < 0) return 1;
    int result = 1;
    // A signal without a handler ends the loop, with the 0 that is the last argument.
    if (sd_event_add_io(event, nullptr, server.Descriptor(), EPOLLIN, onReadable, &server) >= 0 &&
        sd_event_add_signal(event, nullptr, SIGTERM, nullptr, nullptr) >= 0 &&
        sd_event_add_signal(event, nullptr, SIGINT, nullptr, nullptr) >= 0) {
        std::cout << "ready" << std::endl;
        result = sd_event_loop(event);
    }
    sd_event_unref(event);
    return result == 0 || result == ESHUTDOWN ? 0 : 1;
}
