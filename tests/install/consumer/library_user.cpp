// Sends itself a message through the library and names a server of the directory.
#include <cerrno>
#include <iostream>

#include "directory/LinxServerNameList.h"
#include "ipc/LogLevel.h"
#include "ipc/ReservedSignal.h"
#include "ipc/linxIpc.h"
#include "platform/DiffTime.h"
#include "platform/LogClient.h"
#include "platform/Watchdog.h"

int main() {
    const unsigned type = 2000;
    const std::string self = "consumer";
    LinxIpc endpoint(self);
    IpcMessage sent;
    IpcMessage received;
    char text[] = "round trip";
    Watchdog watchdog;
    const bool worked = endpoint.Init() == 0 && sent.Allocate(type, sizeof text, text) == 0 &&
                        endpoint.Notify(self, sent, true) == 0 &&
                        endpoint.Receive(10000, type, LinxIpc::emptyString, &received) == 0 &&
                        received.GetSender() == self && received.Length() == sizeof text &&
                        std::string(received.DataPtr()) == text && watchdog.PetWatchdog() == 0 &&
                        DiffTime::ReCalcTimeout(DiffTime::CalcInitialTimeout(-1)) < 0 &&
                        (LogClient::Instance()->Level() & e_LogError) != 0 &&
                        sent.Allocate(e_ShutdownSignal, 0, nullptr) == 0 && endpoint.Notify(self, sent, true) == 0 &&
                        endpoint.Receive(10000, 0, LinxIpc::emptyString, nullptr) == ESHUTDOWN;
    if (!worked) return 1;
    std::cout << received.DataPtr() << ", " << LinxServerNameList::Instance().Name(e_ConfigMgr) << std::endl;
    return 0;
}
