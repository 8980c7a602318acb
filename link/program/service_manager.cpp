#include "link/program/service_manager.h"

#ifdef LINXIPC_SYSTEMD
#include <systemd/sd-daemon.h>
#endif

namespace linx::link {
namespace {

#ifdef LINXIPC_SYSTEMD
void tell(const std::string& state) {
    sd_notify(0, state.c_str());
}

/// How long it may be silent; 0 where it may be so for ever.
Time longestSilence() {
    uint64_t microseconds = 0;
    return sd_watchdog_enabled(0, &microseconds) > 0 ? Time(microseconds) : Time(0);
}
#else
void tell(const std::string&) {}

Time longestSilence() {
    return Time(0);
}
#endif

}  // namespace

// Half of it, as one that comes at the last moment comes too late.
ServiceManager::ServiceManager() : interval_(longestSilence() / 2) {}

void ServiceManager::ready() {
    tell("READY=1");
}

void ServiceManager::stopping() {
    tell("STOPPING=1");
}

void ServiceManager::tellStatus(const std::string& status) {
    if (status == status_) return;
    status_ = status;
    tell("STATUS=" + status);
}

Time ServiceManager::keepAlive(Time now) {
    if (interval_ == Time(0)) return Time::max();
    if (now >= due_) {
        tell("WATCHDOG=1");
        due_ = now + interval_;
    }
    return due_;
}

}  // namespace linx::link
