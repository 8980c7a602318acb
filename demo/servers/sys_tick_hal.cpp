#include "demo/servers/servers.h"

namespace demo {

namespace {

/// The device's clock: a time-out that is armed again whenever it fires.
class SysTickHal : public Server {
public:
    explicit SysTickHal(const Wiring& wiring) : Server(e_SysTickHal, wiring) {
        On<&SysTickHal::OnTickDue>(m_TickDue, this);
    }

private:
    void Prepare() override { Arm(); }

    void Arm() {
        if (const int result = ipc.EnableTimer(static_cast<int>(config.tickPeriod), m_TickDue); result != 0) {
            report.Fail("cannot arm its timer: " + std::to_string(result));
        }
    }

    void OnTickDue(IpcMessage&) {
        Arm();
        ++ticks;
        report.Note(Fact::tickFired, ticks, ticks % 5 == 0 ? "tick " + std::to_string(ticks) : "");
        SendTick(e_UiMgr);
        SendTick(e_ConnectionMgr);
    }

    /// A listener may have shut down already: that a tick misses it is no failure.
    void SendTick(e_Process listener) {
        IpcMessage message;
        Pack(message, m_Tick, Tick{ticks});
        ipc.Notify(Name(listener), message, false);
    }

    std::uint32_t ticks = 0;
};

}  // namespace

std::unique_ptr<Server> MakeSysTickHal(const Wiring& wiring) {
    return std::make_unique<SysTickHal>(wiring);
}

}  // namespace demo
