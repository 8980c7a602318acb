// subscriber NAME: takes what is published. subscriber NAME COUNT: gets stuck after so many frames, until Enter.
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>

#include "frames.h"
#include "ipc/linxIpc.h"

struct Subscriber {
    std::string name;
    unsigned stuckAfter = 0;
    unsigned taken = 0;
    unsigned latest = 0;
};

static void take(LinxIpc* endpoint, void* userData) {
    Subscriber& self = *static_cast<Subscriber*>(userData);
    unsigned number;
    if (endpoint->rxMessage.Length() != frameSize) return;
    std::memcpy(&number, endpoint->rxMessage.DataPtr(), sizeof number);
    IpcMessage taken;
    taken.Allocate(frameTaken, 0, nullptr);
    endpoint->Notify("Publisher", taken, false);

    if (self.latest != 0 && number != self.latest + 1)
        std::cout << self.name << " sees a gap before frame " << number << std::endl;
    self.latest = number;
    if (++self.taken % 50 == 0) std::cout << self.name << " has " << self.taken << " frames" << std::endl;
    if (self.taken != self.stuckAfter) return;
    std::cout << self.name << " is stuck" << std::endl;
    std::string line;
    std::getline(std::cin, line);
}

int main(int count, char** arguments) {
    if (count < 2) return 2;
    Subscriber self{arguments[1]};
    if (count > 2) self.stuckAfter = static_cast<unsigned>(std::atoi(arguments[2]));
    LinxIpc endpoint(self.name);
    endpoint.RegisterHandler(frame, take, &self);
    IpcMessage subscription;
    subscription.Allocate(subscribe, 0, nullptr);
    if (endpoint.Init() != 0 || endpoint.Notify("Publisher", subscription, true) != 0) return 1;
    int result = 0;
    while (result == 0) result = endpoint.Receive(-1, 0, LinxIpc::emptyString, nullptr);
    return result == ESHUTDOWN ? 0 : 1;
}
