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

    bool valid() const { return ends_[0] != -1; }
    int readEnd() const { return ends_[0]; }
    int writeEnd() const { return ends_[1]; }

private:
    int ends_[2] = {-1, -1};
};

/// Signals that arrive by a descriptor instead of by surprise: blocked as long as this lives.
class SignalDescriptor {
public:
    explicit SignalDescriptor(std::initializer_list<int> numbers);
    ~SignalDescriptor();
    SignalDescriptor(const SignalDescriptor&) = delete;
    SignalDescriptor& operator=(const SignalDescriptor&) = delete;

    bool valid() const { return descriptor_ != -1; }
    int number() const { return descriptor_; }

    /// The signal mask that was in force before.
    const sigset_t& maskBefore() const { return before_; }

private:
    sigset_t before_{};
    int descriptor_;
};

}  // namespace demo

#endif
