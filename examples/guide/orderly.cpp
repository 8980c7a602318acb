// The thermometer as a service: it tells systemd when it is ready, pets the watchdog, and answers what was asked
// before it ends.
#include <poll.h>
#include <sys/signalfd.h>
#include <systemd/sd-daemon.h>

#include <csignal>
#include <iostream>

#include "loop.h"

/// How long a wait may last, in milliseconds: half of what systemd's watchdog allows, or without limit.
static int longestWait() {
    std::uint64_t microseconds = 0;
    return sd_watchdog_enabled(0, &microseconds) > 0 ? static_cast<int>(microseconds / 2000) : -1;
}

static int openSignals() {
    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGTERM);
    sigaddset(&ends, SIGINT);
    sigprocmask(SIG_BLOCK, &ends, nullptr);
    return signalfd(-1, &ends, SFD_CLOEXEC);
}

static int serve(LinxIpc& server, int asked) {
    Watchdog watchdog;
    pollfd awaited[] = {{server.Descriptor(), POLLIN, 0}, {asked, POLLIN, 0}};
    const int wait = longestWait();
    int result = 0;
    while (result == 0 && awaited[1].revents == 0) {
        poll(awaited, 2, wait);
        result = server.Receive(watchdog, 0);
    }
    return result;
}

/// Handles what has come so far. Bounded, as others may go on asking.
static void finish(LinxIpc& server) {
    int result = 0;
    for (int left = 10000; left > 0 && (result == 0 || result == ESHUTDOWN); --left)
        result = server.Receive(0, 0, LinxIpc::emptyString, nullptr);
}

int main() {
    const int asked = openSignals();
    LinxIpc server("Thermometer");
    server.RegisterHandler(askTemperature, answer, nullptr);
    if (asked == -1 || server.Init() != 0) return 1;
    sd_notify(0, "READY=1");
    std::cout << "ready" << std::endl;
    const int result = serve(server, asked);
    sd_notify(0, "STOPPING=1");
    finish(server);
    return result == 0 || result == ESHUTDOWN ? 0 : 1;
}
