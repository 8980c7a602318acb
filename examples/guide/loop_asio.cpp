// A main loop of Asio.
#include <unistd.h>

#include <asio/io_context.hpp>
#include <asio/posix/stream_descriptor.hpp>
#include <asio/signal_set.hpp>
#include <csignal>
#include <iostream>

#include "loop.h"

class Program {
public:
    int run() {
        server_.RegisterHandler(askTemperature, answer, nullptr);
        if (server_.Init() != 0) return -1;
        readable_.assign(dup(server_.Descriptor()));
        ends_.async_wait([this](std::error_code, int) { context_.stop(); });
        awaitMessage();
        std::cout << "ready" << std::endl;
        context_.run();
        return result_;
    }

private:
    void awaitMessage() {
        readable_.async_wait(asio::posix::stream_descriptor::wait_read, [this](std::error_code error) {
            if (!error) result_ = handleOne(server_);
            if (error || result_ != 0) return context_.stop();
            awaitMessage();
        });
    }

    LinxIpc server_{"Thermometer"};
    asio::io_context context_{1};
    asio::posix::stream_descriptor readable_{context_};
    asio::signal_set ends_{context_, SIGTERM, SIGINT};
    int result_ = 0;
};

int main() {
    const int result = Program().run();
    return result == 0 || result == ESHUTDOWN ? 0 : 1;
}
