#include "ipc/ReservedSignal.h"
#include "tools/correspondent.h"
#include "tools/failure.h"
#include "tools/look.h"
#include "tools/text.h"
#include "tools/verbs.h"

namespace tools {

int shutdown(const Options& options, const std::string& name) {
    constexpr uint32_t ended = endedBeside(0);
    Correspondent self(options);
    const std::optional<LinxSpid> found = self.find(name, std::chrono::milliseconds(0));
    if (!found) failForName(name);
    if (options.timeout) self.supervise(*found, ended);
    self.send(*found, e_ShutdownSignal, {});
    if (!options.timeout || self.receive(ended, ended, options.timeout)) return done;
    throw Failure(timedOut, "'" + printable(name) + "' has not ended in time");
}

}  // namespace tools
