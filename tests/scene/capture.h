#ifndef LINXIPC_TESTS_SCENE_CAPTURE_H
#define LINXIPC_TESTS_SCENE_CAPTURE_H

#include <memory>
#include <string>
#include <vector>

#include "inspect/tap.h"
#include "tests/scene/operations.h"

namespace scene {

/// Whoever captures what is sent in a domain, as an operation wants it.
class Capturer {
public:
    Capturer(Capture kind, const std::string& domain) : kind_(kind), domain_(domain) {}

    void begin();

    /// What is wrong: each signal that was captured must be whole, and who has died in no one's way. Ends the
    /// capture.
    std::vector<std::string> end();

private:
    const Capture kind_;
    const std::string domain_;
    std::unique_ptr<linx::inspect::Tap> tap_;
};

}  // namespace scene

#endif
