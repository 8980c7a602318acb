#include "demo/servers/server.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace demo {

Server::Server(e_Process self, const Wiring& wiring)
    : ipc(Name(self)), report(wiring.reports, self), patience(static_cast<int>(wiring.limit) * 900) {
    On<&Server::OnStart>(m_Start, this);
    On<&Server::OnPeerBack>(m_PeerBack, this);
    On<&Server::OnProcessDied>(m_ProcessDied, this);
}

int Server::Run() {
    if (const int error = ipc.Init(); error != 0) {
        report.Fail(std::string("cannot open its endpoint: ") + std::strerror(error));
        return 1;
    }
    int result = Join();
    if (result == 0) result = Serve();
    if (result != ESHUTDOWN) {
        report.Fail("its last Receive gave " + std::to_string(result));
        return 1;
    }
    report.Note(Fact::receiveEnded, static_cast<unsigned>(result), "shutdown request: Receive returned 108");
    return 0;
}

int Server::Join() {
    IpcMessage hello;
    Pack(hello, m_Hello, Hello{getpid()});
    while (ipc.Notify(Name(e_WatchdogMgr), hello, true) != 0) {
        report.Note(Fact::huntedInVain, 0, "hunted WatchdogMgr: not there yet");
        // That name now counts as absent. Its late hunt signal ends a receive and makes it known again.
        do {
            if (const int result = ipc.Receive(-1, 0, LinxIpc::emptyString, nullptr); result != 0) return result;
        } while (ipc.rxMessage.MsgType() != LINX_OS_HUNT_SIG);
        report.Note(Fact::foundLate, 0, "late hunt signal: " + ipc.rxMessage.GetSender() + " is there now");
    }
    return 0;
}

int Server::Serve() {
    int result = 0;
    while (result == 0) result = ipc.Receive(-1, 0, LinxIpc::emptyString, nullptr);
    return result;
}

void Server::Start() {
    if (!AskConfig()) return;
    Prepare();
    Tell(e_WatchdogMgr, m_Ready);
}

void Server::OnStart(IpcMessage&) {
    Start();
}

void Server::OnPeerBack(IpcMessage& message) {
    PeerBack(Unpack<demo::PeerBack>(message));
}

void Server::OnProcessDied(IpcMessage& message) {
    const auto died = static_cast<e_Process>(Unpack<Died>(message).process);
    report.Say("is told by " + message.GetSender() + " that " + Name(died) + " has died");
}

bool Server::AskConfig() {
    IpcMessage question;
    IpcMessage answer;
    question.Allocate(m_ConfigRequest, 0, nullptr);
    const int result = ipc.Request(Name(e_ConfigMgr), question, m_ConfigReply, patience, &answer);
    if (result != 0 || answer.Length() != sizeof config) {
        report.Fail("its request for the configuration gave " + std::to_string(result));
        return false;
    }
    config = Unpack<Config>(answer);
    report.Note(Fact::configTaken, 0, "asked ConfigMgr for the configuration and has it");
    return true;
}

bool Server::AskPosition(Position& position) {
    IpcMessage question;
    IpcMessage answer;
    question.Allocate(m_PositionRequest, 0, nullptr);
    const int timeout = static_cast<int>(config.answerTime);
    const int result = ipc.Request(Name(e_GpsHal), question, m_PositionReply, timeout, &answer);
    if (result != 0) {
        report.Fail("its request for the position gave " + std::to_string(result));
        return false;
    }
    position = Unpack<Position>(answer);
    return true;
}

void Server::Tell(e_Process server, unsigned number) {
    IpcMessage message;
    message.Allocate(number, 0, nullptr);
    Deliver(Name(server), message);
}

void Server::Deliver(const std::string& destination, IpcMessage& message) {
    if (const int result = ipc.Notify(destination, message, true); result != 0) {
        report.Fail("cannot notify " + destination + ": " + std::to_string(result));
    }
}

}  // namespace demo
