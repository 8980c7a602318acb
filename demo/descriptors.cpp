#include "demo/descriptors.h"

#include <fcntl.h>
#include <sys/signalfd.h>
#include <unistd.h>

namespace demo {

Pipe::Pipe() {
    if (pipe2(ends_, O_CLOEXEC) == -1) return;
    fcntl(ends_[0], F_SETFL, O_NONBLOCK);
}

Pipe::~Pipe() {
    if (!valid()) return;
    close(ends_[0]);
    close(ends_[1]);
}

SignalDescriptor::SignalDescriptor(std::initializer_list<int> numbers) {
    sigset_t mask;
    sigemptyset(&mask);
    for (const int number : numbers) sigaddset(&mask, number);
    sigprocmask(SIG_BLOCK, &mask, &before_);
    descriptor_ = signalfd(-1, &mask, SFD_CLOEXEC | SFD_NONBLOCK);
}

SignalDescriptor::~SignalDescriptor() {
    if (valid()) close(descriptor_);
    sigprocmask(SIG_SETMASK, &before_, nullptr);
}

}  // namespace demo
