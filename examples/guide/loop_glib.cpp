// A main loop of GLib.
#include <glib-unix.h>

#include <csignal>
#include <iostream>

#include "loop.h"

struct Program {
    LinxIpc server{"Thermometer"};
    GMainLoop* loop = g_main_loop_new(nullptr, FALSE);
    int result = 0;
    ~Program() { g_main_loop_unref(loop); }
};

static gboolean onReadable(int, GIOCondition, void* userData) {
    Program& program = *static_cast<Program*>(userData);
    program.result = handleOne(program.server);
    if (program.result != 0) g_main_loop_quit(program.loop);
    return program.result == 0 ? G_SOURCE_CONTINUE : G_SOURCE_REMOVE;
}

static gboolean onSignal(void* userData) {
    g_main_loop_quit(static_cast<Program*>(userData)->loop);
    return G_SOURCE_CONTINUE;
}

int main() {
    Program program;
    program.server.RegisterHandler(askTemperature, answer, nullptr);
    if (program.server.Init() != 0) return 1;
    g_unix_fd_add(program.server.Descriptor(), G_IO_IN, onReadable, &program);
    g_unix_signal_add(SIGTERM, onSignal, &program);
    g_unix_signal_add(SIGINT, onSignal, &program);
    std::cout << "ready" << std::endl;
    g_main_loop_run(program.loop);
    return program.result == 0 || program.result == ESHUTDOWN ? 0 : 1;
}
