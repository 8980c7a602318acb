#ifndef LINXIPC_LINK_PROGRAM_SERVICE_MANAGER_H
#define LINXIPC_LINK_PROGRAM_SERVICE_MANAGER_H

#include <string>

#include "link/session/events.h"

namespace linx::link {

/// What systemd is told of this process. Where somebody else has started it, or it was built without libsystemd, that
/// is nothing.
class ServiceManager {
public:
    ServiceManager();

    void ready();
    void stopping();
    /// A line for people; told only when it is another one than before.
    void tellStatus(const std::string& status);
    /// Says that the program goes on, where that is due and asked for. When it will be due again.
    Time keepAlive(Time now);

private:
    Time interval_;  ///< 0: nobody watches
    Time due_ = Time(0);
    std::string status_;
};

}  // namespace linx::link

#endif
