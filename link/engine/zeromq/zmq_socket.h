#ifndef LINXIPC_LINK_ENGINE_ZEROMQ_ZMQ_SOCKET_H
#define LINXIPC_LINK_ENGINE_ZEROMQ_ZMQ_SOCKET_H

#include <zmq.h>

#include <cerrno>
#include <string>
#include <utility>
#include <vector>

namespace linx::link {

/// Ends when all its sockets are closed, and what they had still to send is gone or too late.
class ZmqContext {
public:
    ZmqContext() : context_(zmq_ctx_new()) {}
    ZmqContext(const ZmqContext&) = delete;
    ZmqContext& operator=(const ZmqContext&) = delete;
    ~ZmqContext() {
        while (zmq_ctx_term(context_) == -1 && zmq_errno() == EINTR) {
        }
    }
    void* get() const { return context_; }

private:
    void* context_;
};

/// One part of a message.
class ZmqPart {
public:
    ZmqPart() { zmq_msg_init(&message_); }
    ZmqPart(const ZmqPart&) = delete;
    ZmqPart& operator=(const ZmqPart&) = delete;
    ~ZmqPart() { zmq_msg_close(&message_); }

    zmq_msg_t* get() { return &message_; }
    const uint8_t* data() { return static_cast<const uint8_t*>(zmq_msg_data(&message_)); }
    size_t size() const { return zmq_msg_size(&message_); }
    bool hasMore() const { return zmq_msg_more(&message_) != 0; }
    std::string text() { return std::string(reinterpret_cast<const char*>(data()), size()); }

private:
    zmq_msg_t message_;
};

/// A socket that never blocks. Calls answer false for an error, which zmq_errno() tells.
class ZmqSocket {
public:
    ZmqSocket(const ZmqContext& context, int type) : socket_(zmq_socket(context.get(), type)) { set(ZMQ_LINGER, 0); }
    ZmqSocket(ZmqSocket&& other) noexcept : socket_(std::exchange(other.socket_, nullptr)) {}
    ZmqSocket& operator=(ZmqSocket&& other) noexcept {
        std::swap(socket_, other.socket_);
        return *this;
    }
    ~ZmqSocket() {
        if (socket_ != nullptr) zmq_close(socket_);
    }

    void* get() const { return socket_; }
    bool set(int option, int value) { return zmq_setsockopt(socket_, option, &value, sizeof value) == 0; }
    bool set(int option, const std::string& value) {
        return zmq_setsockopt(socket_, option, value.data(), value.size()) == 0;
    }
    bool setLargestMessage(int64_t bytes) {
        return zmq_setsockopt(socket_, ZMQ_MAXMSGSIZE, &bytes, sizeof bytes) == 0;
    }
    bool bind(const std::string& address) { return zmq_bind(socket_, address.c_str()) == 0; }
    bool connect(const std::string& address) { return zmq_connect(socket_, address.c_str()) == 0; }
    int descriptor() const {
        int descriptor = -1;
        size_t size = sizeof descriptor;
        zmq_getsockopt(socket_, ZMQ_FD, &descriptor, &size);
        return descriptor;
    }

    bool receive(ZmqPart& part) { return zmq_msg_recv(part.get(), socket_, ZMQ_DONTWAIT) != -1; }
    bool send(const void* data, size_t size, bool hasMore = false) {
        return zmq_send(socket_, data, size, ZMQ_DONTWAIT | (hasMore ? ZMQ_SNDMORE : 0)) != -1;
    }
    bool sendText(const std::string& text, bool hasMore = false) { return send(text.data(), text.size(), hasMore); }
    /// A whole message, however many parts it has, of which no more than `most` are kept; empty when there is none.
    std::vector<std::string> receiveAll(size_t most);

private:
    void* socket_;
};

}  // namespace linx::link

#endif
