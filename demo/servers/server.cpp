#include "demo/servers/server.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "demo/nodes.h"

namespace demo {

Server::Server(e_Process self, const Wiring& wiring)
    : ipc(ownNameOf(self)), report(wiring.reports, self), patience(static_cast<int>(wiring.limit) * 900) {
    on<&Server::onStart>(m_Start, this);
    on<&Server::onPeerBack>(m_PeerBack, this);
    on<&Server::onProcessDied>(m_ProcessDied, this);
}

int Server::run() {
    if (const int error = ipc.Init(); error != 0) {
        report.fail(std::string("cannot open its endpoint: ") + std::strerror(error));
        return 1;
    }
    int result = join();
    if (result == 0) result = serve();
    if (result != ESHUTDOWN) {
        report.fail("its last Receive gave " + std::to_string(result));
        return 1;
    }
    report.note(Fact::receiveEnded, static_cast<unsigned>(result), "shutdown request: Receive returned 108");
    return 0;
}

int Server::join() {
    IpcMessage hello;
    pack(hello, m_Hello, Hello{getpid()});
    while (ipc.Notify(nameOf(e_WatchdogMgr), hello, true) != 0) {
        report.note(Fact::huntedInVain, 0, "hunted WatchdogMgr: not there yet");
        // That name now counts as absent. Its late hunt signal ends a receive and makes it known again.
        do {
            if (const int result = ipc.Receive(-1, 0, LinxIpc::emptyString, nullptr); result != 0) return result;
        } while (ipc.rxMessage.MsgType() != LINX_OS_HUNT_SIG);
        report.note(Fact::foundLate, 0, "late hunt signal: " + ipc.rxMessage.GetSender() + " is there now");
    }
    return 0;
}

int Server::serve() {
    int result = 0;
    while (result == 0) result = ipc.Receive(-1, 0, LinxIpc::emptyString, nullptr);
    return result;
}

void Server::start() {
    if (!askConfig()) return;
    prepare();
    tell(e_WatchdogMgr, m_Ready);
}

void Server::onStart(IpcMessage&) {
    start();
}

void Server::onPeerBack(IpcMessage& message) {
    peerBack(unpack<demo::PeerBack>(message));
}

void Server::onProcessDied(IpcMessage& message) {
    const auto died = static_cast<e_Process>(unpack<Died>(message).process);
    report.say("is told by " + message.GetSender() + " that " + nameOf(died) + " has died");
}

bool Server::askConfig() {
    IpcMessage question;
    IpcMessage answer;
    question.Allocate(m_ConfigRequest, 0, nullptr);
    const int result = ipc.Request(nameOf(e_ConfigMgr), question, m_ConfigReply, patience, &answer);
    if (result != 0 || answer.Length() != sizeof config) {
        report.fail("its request for the configuration gave " + std::to_string(result));
        return false;
    }
    config = unpack<Config>(answer);
    report.note(Fact::configTaken, 0, "asked ConfigMgr for the configuration and has it");
    return true;
}

bool Server::askPosition(Position& position) {
    IpcMessage question;
    IpcMessage answer;
    question.Allocate(m_PositionRequest, 0, nullptr);
    const int timeout = static_cast<int>(config.answerTime);
    const int result = ipc.Request(nameOf(e_GpsHal), question, m_PositionReply, timeout, &answer);
    if (result != 0) {
        report.fail("its request for the position gave " + std::to_string(result));
        return false;
    }
    position = unpack<Position>(answer);
    return true;
}

void Server::tell(e_Process server, unsigned number) {
    IpcMessage message;
    message.Allocate(number, 0, nullptr);
    deliver(nameOf(server), message);
}

void Server::deliver(const std::string& destination, IpcMessage& message) {
    if (const int result = ipc.Notify(destination, message, true); result != 0) {
        report.fail("cannot notify " + destination + ": " + std::to_string(result));
    }
}

}  // namespace demo
