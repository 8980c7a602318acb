#include "demo/descriptors.h"

#include <fcntl.h>
#include <sys/signalfd.h>
#include <unistd.h>

namespace demo {

Pipe::Pipe() {
    if (pipe2(ends, O_CLOEXEC) == -1) return;
    fcntl(ends[0], F_SETFL, O_NONBLOCK);
}

Pipe::~Pipe() {
    if (!Valid()) return;
    close(ends[0]);
    close(ends[1]);
}

SignalDescriptor::SignalDescriptor(std::initializer_list<int> numbers) {
    sigset_t mask;
    sigemptyset(&mask);
    for (const int number : numbers) sigaddset(&mask, number);
    sigprocmask(SIG_BLOCK, &mask, &before);
    descriptor = signalfd(-1, &mask, SFD_CLOEXEC | SFD_NONBLOCK);
}

SignalDescriptor::~SignalDescriptor() {
    if (Valid()) close(descriptor);
    sigprocmask(SIG_SETMASK, &before, nullptr);
}

}  // namespace demo
