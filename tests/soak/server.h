#ifndef LINXIPC_TESTS_SOAK_SERVER_H
#define LINXIPC_TESTS_SOAK_SERVER_H

#include "tests/soak/member.h"

namespace soak {

/// A member that lives as long as the soak.
class Server : public Member {
public:
    using Member::Member;

    /// Talks, counts what the process holds whenever nobody is at work, and goes on, until the soak is over.
    void live();

private:
    void talk();
    void turn();
    void visitOthers();
    void awaitEnds();
};

}  // namespace soak

#endif
