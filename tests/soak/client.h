#ifndef LINXIPC_TESTS_SOAK_CLIENT_H
#define LINXIPC_TESTS_SOAK_CLIENT_H

#include "tests/soak/member.h"

namespace soak {

/// A member that comes and goes.
class Client : public Member {
public:
    using Member::Member;

    /// Makes itself known to the servers and talks to them until it feels like closing, or is told to leave or
    /// retire.
    void live();

private:
    bool feelsLikeClosing();
    void turn();
};

}  // namespace soak

#endif
