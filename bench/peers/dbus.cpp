#include <systemd/sd-bus.h>

#include <fstream>

#include "bench/harness/service.h"
#include "bench/peers/list.h"
#include "bench/peers/window.h"

namespace bench {

namespace {

constexpr const char* interface = "linx.bench";

std::string NameOf(unsigned process) {
    return std::string(interface) + ".process" + std::to_string(process);
}

int Must(int result, const char* what) {
    errno = result < 0 ? -result : 0;
    Check(result >= 0, what);
    return result;
}

/// Method calls with the payload as an array of bytes. In a stream they want no answer, except for one in each half
/// of the window, which keeps the daemon from filling up.
class DbusEnd : public PlainEnd {
public:
    DbusEnd(const Layout& layout, unsigned self)
        : PlainEnd(layout.payload), half(WindowFor(layout.payload) / 2), receiver(NameOf(layout.ReceiverOf(self))) {
        Must(sd_bus_new(&bus), "sd_bus_new");
        Must(sd_bus_set_address(bus, ("unix:path=" + layout.directory + "/dbus").c_str()), "sd_bus_set_address");
        Must(sd_bus_set_bus_client(bus, 1), "sd_bus_set_bus_client");
        Must(sd_bus_start(bus), "sd_bus_start");
        Must(sd_bus_request_name(bus, NameOf(self).c_str(), 0), "sd_bus_request_name");
    }

    View Receive() override {
        sd_bus_message_unref(incoming);
        incoming = nullptr;
        while (incoming == nullptr || sd_bus_message_is_method_call(incoming, interface, nullptr) == 0) {
            sd_bus_message_unref(incoming);
            incoming = nullptr;
            if (Must(sd_bus_process(bus, &incoming), "sd_bus_process") == 0) {
                Must(sd_bus_wait(bus, UINT64_MAX), "sd_bus_wait");
            }
        }
        if (!serving && sd_bus_message_get_expect_reply(incoming) > 0) {
            Must(sd_bus_reply_method_return(incoming, nullptr), "sd_bus_reply_method_return");
        }
        return Payload();
    }

    View Request() override {
        sd_bus_message* call = Call({Outgoing(), Size()});
        sd_bus_message_unref(incoming);
        incoming = nullptr;
        Must(sd_bus_call(bus, call, 0, nullptr, &incoming), "sd_bus_call");
        sd_bus_message_unref(call);
        return Payload();
    }

    void Serve() override {
        serving = true;
        const View request = Receive();
        sd_bus_message* answer = nullptr;
        Must(sd_bus_message_new_method_return(incoming, &answer), "sd_bus_message_new_method_return");
        Must(sd_bus_message_append_array(answer, 'y', request.bytes, request.size), "sd_bus_message_append_array");
        Must(sd_bus_send(bus, answer, nullptr), "sd_bus_send");
        sd_bus_message_unref(answer);
    }

private:
    void Transmit(View message) override {
        sd_bus_message* call = Call(message);
        if (++sent % half == 0) {
            Must(sd_bus_call(bus, call, 0, nullptr, nullptr), "sd_bus_call");
        } else {
            Must(sd_bus_message_set_expect_reply(call, 0), "sd_bus_message_set_expect_reply");
            Must(sd_bus_send(bus, call, nullptr), "sd_bus_send");
            Must(sd_bus_flush(bus), "sd_bus_flush");
        }
        sd_bus_message_unref(call);
    }

    sd_bus_message* Call(View payload) {
        sd_bus_message* call = nullptr;
        Must(sd_bus_message_new_method_call(bus, &call, receiver.c_str(), "/", interface, "Take"),
             "sd_bus_message_new_method_call");
        Must(sd_bus_message_append_array(call, 'y', payload.bytes, payload.size), "sd_bus_message_append_array");
        return call;
    }

    View Payload() {
        const void* bytes = nullptr;
        std::size_t size = 0;
        Must(sd_bus_message_read_array(incoming, 'y', &bytes, &size), "sd_bus_message_read_array");
        return {static_cast<const char*>(bytes), size};
    }

    std::uint64_t half;
    std::string receiver;
    sd_bus* bus = nullptr;
    sd_bus_message* incoming = nullptr;
    std::uint64_t sent = 0;
    bool serving = false;
};

std::string Configure(const std::string& directory) {
    const std::string file = directory + "/dbus.conf";
    std::ofstream(file) << "<busconfig><listen>unix:path=" << directory << "/dbus</listen><auth>EXTERNAL</auth>"
                        << "<policy context=\"default\"><allow send_destination=\"*\" eavesdrop=\"true\"/>"
                        << "<allow eavesdrop=\"true\"/><allow own=\"*\"/></policy>"
                        << "<limit name=\"max_outgoing_bytes\">1000000000</limit>"
                        << "<limit name=\"max_incoming_bytes\">1000000000</limit></busconfig>\n";
    return file;
}

class DbusSession : public Session {
public:
    explicit DbusSession(const Layout& chosen)
        : layout(chosen),
          daemon({"dbus-daemon", "--nofork", "--nopidfile", "--print-address=1",
                  "--config-file=" + Configure(layout.directory)},
                 layout.placement, "unix:path=") {}
    std::unique_ptr<End> Open(unsigned self) override { return std::make_unique<DbusEnd>(layout, self); }
    std::vector<pid_t> Daemons() const override { return {daemon.Pid()}; }

private:
    Layout layout;
    Service daemon;
};

class Dbus : public Peer {
public:
    std::string Name() const override { return dbusName; }
    std::unique_ptr<Session> Begin(const Layout& layout) const override {
        return std::make_unique<DbusSession>(layout);
    }
};

}  // namespace

std::unique_ptr<Peer> MakeDbus() {
    return std::make_unique<Dbus>();
}

}  // namespace bench
