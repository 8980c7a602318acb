#include "tools/correspondent.h"
#include "tools/failure.h"
#include "tools/text.h"
#include "tools/verbs.h"

namespace tools {
namespace {

int waitForEnd(Correspondent& self, const Options& options, const std::string& name) {
    constexpr uint32_t ended = endedBeside(0);
    const std::optional<LinxSpid> found = self.find(name, std::chrono::milliseconds(0));
    if (!found) return done;
    self.supervise(*found, ended);
    if (self.receive(ended, ended, options.timeout)) return done;
    throw Failure(timedOut, "'" + printable(name) + "' has not ended in time");
}

}  // namespace

int wait(const Options& options, const WaitOptions& what) {
    Correspondent self(options);
    if (what.gone) return waitForEnd(self, options, what.name);
    if (self.find(what.name, options.timeout)) return done;
    throw Failure(timedOut, "nobody has opened '" + printable(what.name) + "' in time");
}

}  // namespace tools
