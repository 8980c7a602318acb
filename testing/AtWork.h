#ifndef LINXIPC_TESTING_ATWORK_H
#define LINXIPC_TESTING_ATWORK_H

namespace linx::testing {

/// While there is one, the platform is at work on this thread.
class AtWork {
public:
    AtWork() { ++depth; }
    ~AtWork() { --depth; }
    AtWork(const AtWork&) = delete;
    AtWork& operator=(const AtWork&) = delete;

    static inline thread_local unsigned depth = 0;
};

}  // namespace linx::testing

#endif
