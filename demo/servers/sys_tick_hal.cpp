#include "demo/servers/servers.h"

namespace demo {

namespace {

/// The device's clock: a time-out that is armed again whenever it fires.
class SysTickHal : public Server {
public:
    explicit SysTickHal(const Wiring& wiring) : Server(e_SysTickHal, wiring) {
        on<&SysTickHal::onTickDue>(m_TickDue, this);
    }

private:
    void prepare() override { arm(); }

    void arm() {
        if (const int result = ipc.EnableTimer(static_cast<int>(config.tickPeriod), m_TickDue); result != 0) {
            report.fail("cannot arm its timer: " + std::to_string(result));
        }
    }

    void onTickDue(IpcMessage&) {
        arm();
        ++ticks_;
        report.note(Fact::tickFired, ticks_, ticks_ % 5 == 0 ? "tick " + std::to_string(ticks_) : "");
        sendTick(e_UiMgr);
        sendTick(e_ConnectionMgr);
    }

    /// A listener may have shut down already: that a tick misses it is no failure.
    void sendTick(e_Process listener) {
        IpcMessage message;
        pack(message, m_Tick, Tick{ticks_});
        ipc.Notify(nameOf(listener), message, false);
    }

    std::uint32_t ticks_ = 0;
};

}  // namespace

std::unique_ptr<Server> makeSysTickHal(const Wiring& wiring) {
    return std::make_unique<SysTickHal>(wiring);
}

}  // namespace demo
