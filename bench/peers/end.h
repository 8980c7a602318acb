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
    virtual void Connect() {}

    /// The application's copy of the message that it sends: written to between sends, never changed by them.
    virtual char* Outgoing() = 0;

    /// Sends the outgoing message.
    virtual void Send() = 0;

    /// Receives a message.
    virtual View Receive() = 0;

    /// Sends the outgoing message as a request and waits for its answer.
    virtual View Request() = 0;

    /// Receives a request and answers it with a message of the same size and head.
    virtual void Serve() = 0;

    /// Receives a message and sends it on as it is.
    virtual void Forward() = 0;
};

/// An end that knows nothing but sending and receiving.
class PlainEnd : public End {
public:
    explicit PlainEnd(std::size_t payload) : outgoing(payload) {}

    char* Outgoing() override { return outgoing.data(); }
    void Send() override { Transmit({outgoing.data(), outgoing.size()}); }
    View Request() override {
        Send();
        return Receive();
    }
    void Serve() override { Transmit(Receive()); }
    void Forward() override { Transmit(Receive()); }

protected:
    virtual void Transmit(View message) = 0;
    std::size_t Size() const { return outgoing.size(); }

private:
    std::vector<char> outgoing;
};

}  // namespace bench

#endif
