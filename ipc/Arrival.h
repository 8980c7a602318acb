#ifndef LINXIPC_IPC_ARRIVAL_H
#define LINXIPC_IPC_ARRIVAL_H

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <utility>

#include "directory/LinxServerNameList.h"
#include "ipc/Held.h"
#include "ipc/ReservedSignal.h"
#include "ipc/linxIpc.h"
#include "log/LogLine.h"
#include "platform/linx.h"

/// A signal begins with its number; the payload follows.
constexpr std::uint32_t numberSize = sizeof(LinxSignal);

inline char* payload(LinxSignal* signal) {
    return reinterpret_cast<char*>(signal) + numberSize;
}

/// What waiting for a signal has brought: the signal and what it means to the wait, or the errno value of a wait that
/// ended without one.
struct LinxIpc::Arrival {
    explicit Arrival(int waitError) : error(waitError) {}

    /// Reads all that is needed of the signal once it has been handed back. A notice of a death begins with the
    /// process; one that is too short for that counts as one about process 0.
    Arrival(Held<LinxSignal> taken, std::uint32_t size)
        : signal(std::move(taken)), number(signal->number), payloadSize(size - numberSize) {
        if (number == e_ProcessDiedSignal && payloadSize >= sizeof dead)
            std::memcpy(&dead, payload(signal.get()), sizeof dead);
    }

    /// Whether its number says more about the wait than that a message has come.
    bool isReserved() const {
        static_assert(e_ProcessDiedSignal == e_ShutdownSignal + 1, "one comparison finds both");
        return number - e_ShutdownSignal <= 1 || number == e_WaitGoesOnSignal;
    }

    /// The result of a receive from `peer` that this reserved signal ends; none if the wait goes on. Logs a death in
    /// either case, and why the wait ends. Cold: not on the path of ordinary messages.
    [[gnu::cold]] std::optional<int> logAndConclude(const std::string& peer) const {
        if (number == e_WaitGoesOnSignal) return std::nullopt;
        if (number == e_ShutdownSignal) {
            logLine(logText::shutdownRequested);
            return ESHUTDOWN;
        }
        const std::string& deadName = LinxServerNameList::Instance().Name(dead);
        logLine(logText::processDied, static_cast<int>(dead), deadName);
        if (deadName != peer) return std::nullopt;
        logLine(logText::hostUnreachable);
        return EHOSTUNREACH;
    }

    Held<LinxSignal> signal{nullptr, {nullptr}};  // null when there is none
    int error = 0;
    std::uint32_t number = 0;
    std::uint32_t payloadSize = 0;
    e_Process dead = e_UndefinedServer;  // the process that a notice of a death is about
};

#endif
