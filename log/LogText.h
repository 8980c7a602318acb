#ifndef LINXIPC_LOG_LOGTEXT_H
#define LINXIPC_LOG_LOGTEXT_H

#include "log/LogLevel.h"

/// What a line of the log says: "linxIpc:342 LinxIpc::Init open failed for: Name, errno 98". Each {} stands for a
/// value.
struct LogText {
    LogLevel level;
    int number;
    const char* text;
    const char* source = "linxIpc";
};

/// Every line that the library writes, in the order of the operations that write them.
///
/// Source, number and text are what people search a log for, and what scripts match, so all three are promised. A
/// number is the name of its line: it stays when the code moves, which is why it is not __LINE__. A text stays too
/// where it names another operation than the one that writes it, as several do.
namespace logText {

// LinxIpc::Init
inline constexpr LogText initAgain{e_LogError, 334, "LinxIpc::Init Linx Already initialized"};
inline constexpr LogText initFailed{e_LogError, 342, "LinxIpc::Init open failed for: {}, errno {}"};

// LinxIpc::Attach
inline constexpr LogText attachUninitialized{e_LogError, 363, "LinxIpc::Attach use of un-initialized object"};
inline constexpr LogText attachUnresolved{e_LogError, 376, "LinxIpc::Attach: cannot resolve destination"};
inline constexpr LogText attachRefused{e_LogError, 393, "LinxIpc::Attach(): failed to attach"};

// LinxIpc::Notify. A failed send takes three lines: why, to whom, how large.
inline constexpr LogText notifyUninitialized{e_LogError, 416, "Notify: use of un-initialized object"};
inline constexpr LogText notifyUnresolved{e_LogError, 438, "Notify: cannot resolve destination {}"};
inline constexpr LogText notifyAbsent{e_LogError, 449, "Notify: cannot resolve destination"};
inline constexpr LogText notifyNoSignal{e_LogError, 460, "Notify: linx_alloc failed: {}"};
inline constexpr LogText notifySendFailed{e_LogSendFailure, 477, "Notify: send failed: {} retries left = {}"};
inline constexpr LogText notifySendFailedTo{e_LogSendFailure, 478,
                                            "Notify: send failed: linx destination endpoint name = {}"};
inline constexpr LogText notifySendFailedSize{e_LogSendFailure, 479,
                                              "Notify: send failed: size of linx message = {}"};
inline constexpr LogText notifyGivesUp{e_LogError, 484, "Notify: send failed. No retries remaining: {}"};
inline constexpr LogText notifyGivesUpTo{e_LogError, 485, "Notify: send failed: linx destination endpoint name = {}"};
inline constexpr LogText notifyGivesUpSize{e_LogError, 486, "Notify: send failed: size of linx message = {}"};
inline constexpr LogText notifySentAfterRetries{e_LogEvent, 500, "Notify: send successful after {} retries"};

// LinxIpc::Request
inline constexpr LogText requestUninitialized{e_LogError, 529, "Request: use of un-initialized object"};
inline constexpr LogText requestNotAnswered{e_LogError, 544, "Request: call to LinxIpc::Receive failed: {}"};
inline constexpr LogText requestNotSent{e_LogError, 550, "Request: call to LinxIpc::Notify failed: {}"};

// LinxIpc::AsyncRequest
inline constexpr LogText asyncRequestUninitialized{e_LogError, 577,
                                                   "LinxIpc::AsyncRequest use of un-initialized object"};
inline constexpr LogText asyncRequestGoesOn{
    e_LogRequest, 608, "LinxIpc::AsyncRequest did not receive message waiting on, will go back and listen"};

// LinxIpc::Receive
inline constexpr LogText receiveUninitialized{e_LogError, 653, "Receive: use of un-initialized object"};
inline constexpr LogText receiveFailed{e_LogError, 700, "Receive: {}"};
inline constexpr LogText receiveNotCopied{e_LogError, 770, "Receive: error allocating message: {}"};
inline constexpr LogText shutdownRequested{e_LogShutdown, 802, "Receive: Shutdown Requested"};
inline constexpr LogText processDied{e_LogEvent, 813, "Receive: Process died {} - {}"};
inline constexpr LogText hostUnreachable{e_LogError, 817, "Receive: host unreachable"};

// LinxIpc::ResolveDestination
inline constexpr LogText resolveUninitialized{e_LogError, 917, "LinxIpc::Attach use of un-initialized object"};
inline constexpr LogText knownAsAbsent{e_LogError, 935, "LinxIpc::ResolveDestination: unresolved"};
inline constexpr LogText hunting{e_LogHunt, 941, "LinxIpc::ResolveDestination: calling linx_hunt, destination = {}"};
inline constexpr LogText huntFailed{e_LogError, 946, "LinxIpc::ResolveDestination: {}"};
inline constexpr LogText huntNotReceived{e_LogError, 955, "LinxIpc::ResolveDestination: {}"};
inline constexpr LogText huntNotAnswered{e_LogError, 973, "LinxIpc::ResolveDestination: unresolved"};

// LinxIpc::EnableTimer
inline constexpr LogText timerUninitialized{e_LogError, 992, "LinxIpc::Attach use of un-initialized object"};
inline constexpr LogText timerNoSignal{e_LogError, 1004, "LinxIpc::EnableTimer: {}"};
inline constexpr LogText timerRefused{e_LogError, 1015, "LinxIpc::EnableTimer: {}"};

// The operations of a FileDescriptor
inline constexpr LogText sendNotSupported{e_LogError, 1103, "LinxIpc::Send: method not supported"};
inline constexpr LogText receiveNotSupported{e_LogError, 1111, "LinxIpc::Receive: method not supported"};
inline constexpr LogText blockingNotSupported{e_LogError, 1117, "LinxIpc::Blocking: method not supported"};

// LinxIpc::Relay
inline constexpr LogText relayUninitialized{e_LogError, 1134, "LinxIpc::Attach use of un-initialized object"};
inline constexpr LogText relayForeignMessage{e_LogError, 1139, "Signal must be sent from originating endpoint"};
inline constexpr LogText relayUnresolved{e_LogError, 1152, "LinxIpc::Notify: cannot resolve destination {}"};
inline constexpr LogText relayAbsent{e_LogError, 1160, "Relay Illegal Spid"};
inline constexpr LogText relayNotSent{e_LogSendFailure, 1169, "LinxIpc::Notify: send failed: {}"};

// LinxServerNameList::Name
inline constexpr LogText serverUnknown{
    e_LogLookup, 128, "LinxServerNameList::Name - ServerName not found for {},    size = {}", "LinxServerNameList"};

}  // namespace logText

#endif
