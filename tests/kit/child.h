#ifndef LINXIPC_TESTS_KIT_CHILD_H
#define LINXIPC_TESTS_KIT_CHILD_H

#include <sys/types.h>

#include <functional>
#include <memory>

#include "tests/kit/failures.h"
#include "tests/kit/line.h"

/// A process of the test's. It ends when `body` returns, with status 0 unless an expectation failed in it; it is
/// killed if it still lives when this object goes, or when its parent ends. What fails in it fails here too, once its
/// end is seen, however it ended.
class Child {
public:
    using Body = std::function<void(Line& parent)>;

    explicit Child(const Body& body);
    ~Child();
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    void tell(uint32_t word = 0) const { line_->tell(word); }
    uint32_t hear() const { return line_->hear(); }
    pid_t pid() const { return pid_; }

    /// Kills the process and returns when it is gone.
    void kill9();

    /// Stops the process and returns when it stands still.
    void stop() const;
    void cont() const;

    /// Whether the process has ended; `exitStatus` then does not wait.
    bool hasEnded() const;

    /// Waits until the process waits for something. The test fails when it never does.
    void awaitSleep() const;

    /// Waits for the end, unless it takes too long: false then. `exitStatus` waits no more after it.
    bool endsInTime() const;

    /// Waits for the end. The exit status, or the negative number of the POSIX signal that ended the process.
    int exitStatus();

private:
    int awaitEnd();

    Failures failures_;
    pid_t pid_;
    std::unique_ptr<Line> line_;
};

/// Has the kernel kill this process when its parent ends. A change of user undoes it.
void dieWithParent();

#endif
