#include <systemd/sd-bus.h>

#include <fstream>

#include "bench/harness/service.h"
#include "bench/peers/list.h"
#include "bench/peers/window.h"

namespace bench {

namespace {

constexpr const char* daemonName = "dbus-daemon";
constexpr const char* interface = "linx.bench";

std::string nameOf(unsigned process) {
    return std::string(interface) + ".process" + std::to_string(process);
}

int must(int result, const char* what) {
    errno = result < 0 ? -result : 0;
    check(result >= 0, what);
    return result;
}

/// Method calls with the payload as an array of bytes. In a stream they want no answer, except for one in each half
/// of the window, which keeps the daemon from filling up.
class DbusEnd : public PlainEnd {
public:
    DbusEnd(const Session& session, unsigned self)
        : PlainEnd(session.layout.payload),
          half_(windowFor(session.layout.payload) / 2),
          receiver_(nameOf(session.layout.receiverOf(self))) {
        must(sd_bus_new(&bus_), "sd_bus_new");
        must(sd_bus_set_address(bus_, ("unix:path=" + session.layout.directory + "/dbus").c_str()),
             "sd_bus_set_address");
        must(sd_bus_set_bus_client(bus_, 1), "sd_bus_set_bus_client");
        must(sd_bus_start(bus_), "sd_bus_start");
        must(sd_bus_request_name(bus_, nameOf(self).c_str(), 0), "sd_bus_request_name");
    }

    View receive() override {
        sd_bus_message_unref(incoming_);
        incoming_ = nullptr;
        while (incoming_ == nullptr || sd_bus_message_is_method_call(incoming_, interface, nullptr) == 0) {
            sd_bus_message_unref(incoming_);
            incoming_ = nullptr;
            if (must(sd_bus_process(bus_, &incoming_), "sd_bus_process") == 0) {
                must(sd_bus_wait(bus_, UINT64_MAX), "sd_bus_wait");
            }
        }
        if (!serving_ && sd_bus_message_get_expect_reply(incoming_) > 0) {
            must(sd_bus_reply_method_return(incoming_, nullptr), "sd_bus_reply_method_return");
        }
        return payload();
    }

    View request() override {
        sd_bus_message* call = makeCall({outgoing(), size()});
        sd_bus_message_unref(incoming_);
        incoming_ = nullptr;
        must(sd_bus_call(bus_, call, 0, nullptr, &incoming_), "sd_bus_call");
        sd_bus_message_unref(call);
        return payload();
    }

    void serve() override {
        serving_ = true;
        const View request = receive();
        sd_bus_message* answer = nullptr;
        must(sd_bus_message_new_method_return(incoming_, &answer), "sd_bus_message_new_method_return");
        must(sd_bus_message_append_array(answer, 'y', request.bytes, request.size), "sd_bus_message_append_array");
        must(sd_bus_send(bus_, answer, nullptr), "sd_bus_send");
        sd_bus_message_unref(answer);
    }

private:
    void transmit(View message) override {
        sd_bus_message* call = makeCall(message);
        if (++sent_ % half_ == 0) {
            must(sd_bus_call(bus_, call, 0, nullptr, nullptr), "sd_bus_call");
        } else {
            must(sd_bus_message_set_expect_reply(call, 0), "sd_bus_message_set_expect_reply");
            must(sd_bus_send(bus_, call, nullptr), "sd_bus_send");
            must(sd_bus_flush(bus_), "sd_bus_flush");
        }
        sd_bus_message_unref(call);
    }

    sd_bus_message* makeCall(View payload) {
        sd_bus_message* call = nullptr;
        must(sd_bus_message_new_method_call(bus_, &call, receiver_.c_str(), "/", interface, "Take"),
             "sd_bus_message_new_method_call");
        must(sd_bus_message_append_array(call, 'y', payload.bytes, payload.size), "sd_bus_message_append_array");
        return call;
    }

    View payload() {
        const void* bytes = nullptr;
        std::size_t size = 0;
        must(sd_bus_message_read_array(incoming_, 'y', &bytes, &size), "sd_bus_message_read_array");
        return {static_cast<const char*>(bytes), size};
    }

    std::uint64_t half_;
    std::string receiver_;
    sd_bus* bus_ = nullptr;
    sd_bus_message* incoming_ = nullptr;
    std::uint64_t sent_ = 0;
    bool serving_ = false;
};

std::string configure(const std::string& directory) {
    const std::string file = directory + "/dbus.conf";
    std::ofstream(file) << "<busconfig><listen>unix:path=" << directory << "/dbus</listen><auth>EXTERNAL</auth>"
                        << "<policy context=\"default\"><allow send_destination=\"*\" eavesdrop=\"true\"/>"
                        << "<allow eavesdrop=\"true\"/><allow own=\"*\"/></policy>"
                        << "<limit name=\"max_outgoing_bytes\">1000000000</limit>"
                        << "<limit name=\"max_incoming_bytes\">1000000000</limit></busconfig>\n";
    return file;
}

struct DbusSession : Session {
    explicit DbusSession(const Layout& chosen)
        : Session(chosen),
          daemon({daemonName, "--nofork", "--nopidfile", "--print-address=1",
                  "--config-file=" + configure(layout.directory)},
                 layout.placement, "unix:path=") {
        daemons = {daemon.pid()};
    }
    static bool runsHere() { return !findProgram(daemonName).empty(); }

    Service daemon;
};

}  // namespace

const Peer dbus = peerOf<DbusEnd, DbusSession>(dbusName);

}  // namespace bench
