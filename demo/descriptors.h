#ifndef LINXIPC_DEMO_DESCRIPTORS_H
#define LINXIPC_DEMO_DESCRIPTORS_H

#include <csignal>
#include <initializer_list>

namespace demo {

/// A pipe that no other program inherits. Its reading end does not wait.
class Pipe {
public:
    Pipe();
    ~Pipe();
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    bool Valid() const { return ends[0] != -1; }
    int ReadEnd() const { return ends[0]; }
    int WriteEnd() const { return ends[1]; }

private:
    int ends[2] = {-1, -1};
};

/// Signals that arrive by a descriptor instead of by surprise: blocked as long as this lives.
class SignalDescriptor {
public:
    explicit SignalDescriptor(std::initializer_list<int> numbers);
    ~SignalDescriptor();
    SignalDescriptor(const SignalDescriptor&) = delete;
    SignalDescriptor& operator=(const SignalDescriptor&) = delete;

    bool Valid() const { return descriptor != -1; }
    int Number() const { return descriptor; }

    /// The signal mask that was in force before.
    const sigset_t& MaskBefore() const { return before; }

private:
    sigset_t before{};
    int descriptor;
};

}  // namespace demo

#endif
