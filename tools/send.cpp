#include "tools/correspondent.h"
#include "tools/failure.h"
#include "tools/verbs.h"

namespace tools {

int send(const Options& options, const SendOptions& what) {
    const Bytes payload = payloadFrom(what.payload);
    Correspondent self(options);
    self.send(self.require(what.name, options), what.number, payload);
    return done;
}

}  // namespace tools
