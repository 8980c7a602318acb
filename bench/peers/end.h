#ifndef LINXIPC_BENCH_PEERS_END_H
#define LINXIPC_BENCH_PEERS_END_H

#include <cstddef>
#include <vector>

namespace bench {

/// Bytes that stay where they are until the next operation on the end that gave them.
struct View {
    const char* bytes;
    std::size_t size;
};

/// What one process of a run talks through. Receiving waits.
class End {
public:
    virtual ~End() = default;

    /// Called when all ends of the run are open.
    virtual void connect() {}

    /// The application's copy of the message that it sends: written to between sends, never changed by them.
    virtual char* outgoing() = 0;

    /// Sends the outgoing message.
    virtual void send() = 0;

    /// Receives a message.
    virtual View receive() = 0;

    /// Sends the outgoing message as a request and waits for its answer.
    virtual View request() = 0;

    /// Receives a request and answers it with a message of the same size and head.
    virtual void serve() = 0;

    /// Receives a message and sends it on as it is.
    virtual void forward() = 0;
};

/// An end that knows nothing but sending and receiving.
class PlainEnd : public End {
public:
    explicit PlainEnd(std::size_t payload) : outgoing_(payload) {}

    char* outgoing() override { return outgoing_.data(); }
    void send() override { transmit({outgoing_.data(), outgoing_.size()}); }
    View request() override {
        send();
        return receive();
    }
    void serve() override { transmit(receive()); }
    void forward() override { transmit(receive()); }

protected:
    virtual void transmit(View message) = 0;
    std::size_t size() const { return outgoing_.size(); }

private:
    std::vector<char> outgoing_;
};

}  // namespace bench

#endif
