#ifndef LINXIPC_TESTING_ENDPOINTS_H
#define LINXIPC_TESTING_ENDPOINTS_H

#include <deque>
#include <string>

#include "testing/Arrivals.h"

struct LINX {
    std::string name;
    LinxSpid spid;
    int event = -1;       // readable while there is something to be received; made when it is asked for
    int descriptor = -1;  // the duplicate of it that was handed out, which is the program's own
    bool isOpen = true;
};

namespace linx::testing {

/// The program's own endpoints.
class Endpoints {
public:
    LINX* open(const char* name, LinxSpid spid);
    void close(LINX& endpoint);

    /// Null when there never was such an endpoint.
    LINX* find(const LINX* endpoint);

    /// Whether it was opened since `forget`, and not closed.
    bool isOpen(const LINX* endpoint);

    /// What a call on it is recorded with: nothing for the one that was opened first since `forget`.
    std::string label(const LINX* endpoint);

    /// The descriptor that is handed out for it, -1 with errno when there is none left.
    int descriptor(LINX& endpoint);

    /// Makes descriptors readable, or no longer so, as `arrivals` wants them.
    void showReadiness(const Arrivals& arrivals);

    /// Whether none was opened since `forget`.
    bool empty() const { return forgotten_ == endpoints_.size(); }

    /// Closes what is open. The handles remain: programs may still have them, and close them.
    void forget();

private:
    std::deque<LINX> endpoints_;
    std::size_t forgotten_ = 0;
};

}  // namespace linx::testing

#endif
