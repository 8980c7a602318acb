#ifndef LINXIPC_TESTS_CALLS_TRACER_H
#define LINXIPC_TESTS_CALLS_TRACER_H

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <vector>

namespace calls {

/// A system call at which a process stands.
struct Call {
    uint64_t number = 0;
    uint64_t arguments[6] = {};
    bool done = false;  ///< it has been made
};

/// Whether the system calls of a process count just now. It says so itself, in memory that the tracer sees.
enum class Window : uint32_t { notYet, open, over };

/// What becomes of a process at a system call.
struct Decision {
    enum class Kind {
        proceed,
        stand,  ///< the process stands still there
        fail  ///< before the call: the kernel does nothing, and `error` is the answer; after it: that is all the same
    };
    Kind kind = Kind::proceed;
    int error = 0;
};

/// Runs a process from system call to system call. If it forks while the window is open, the calls of its child count
/// from then on, and not its own. To be used by one thread.
class Tracer {
public:
    /// Asked before and after each call that counts.
    using Watch = std::function<Decision(const Call& call)>;

    /// Whether this process may trace others, and can change what they are answered.
    static bool isPossible();

    /// The process must be a child, waiting for a word of ours, and head a process group of its own.
    Tracer(pid_t process, const std::atomic<Window>& window);

    /// Lets go of everybody.
    ~Tracer();
    Tracer(const Tracer&) = delete;
    Tracer& operator=(const Tracer&) = delete;

    enum class State {
        stands,  ///< where `watch` wanted
        free,    ///< the window is over, or everybody has ended: nobody is traced any more
        hangs    ///< no call comes, and no end
    };

    /// Runs the process until one of these.
    State run(const Watch& watch);

    /// Kills whom `watch` had stand still, and lets the others go. Whether that was the process itself, and no child
    /// of it.
    bool kill();

private:
    struct Stop {
        pid_t process;
        int status;
    };

    bool awaitStop(Stop& stop, pid_t which);
    void resume(pid_t process, int signal = 0);
    void add(pid_t process);
    bool handle(const Stop& stop, const Watch& watch);
    bool handleCall(pid_t process, const Watch& watch);
    void fail(pid_t process, int error);
    void answer(pid_t process);
    void letGo();

    const pid_t leader_;
    const std::atomic<Window>& window_;
    std::vector<pid_t> traced_;
    pid_t actor_;         ///< whose calls count
    pid_t standing_ = 0;  ///< 0: nobody
    Call call_;           ///< that the actor is making
    int error_ = 0;       ///< that will be the answer; 0: what the kernel says
};

}  // namespace calls

#endif
