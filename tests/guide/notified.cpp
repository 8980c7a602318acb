// notified SOCKET: stands in for systemd, and writes down what it is told there.
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <iostream>
#include <string>

int main(int count, char** arguments) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (count != 2 || std::strlen(arguments[1]) >= sizeof address.sun_path) return 2;
    std::strcpy(address.sun_path, arguments[1]);
    const int manager = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (manager == -1 || bind(manager, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) return 1;
    std::cout << "ready" << std::endl;
    char notice[256];
    for (;;) {
        const ssize_t size = recv(manager, notice, sizeof notice, 0);
        if (size <= 0) return 1;
        std::cout << std::string(notice, static_cast<std::size_t>(size)) << std::endl;
    }
}
