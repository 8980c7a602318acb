#ifndef LINXIPC_TESTS_SCENE_STAGE_H
#define LINXIPC_TESTS_SCENE_STAGE_H

#include <functional>
#include <string>
#include <vector>

#include "tests/kit/child.h"
#include "tests/kit/domain.h"
#include "tests/scene/capture.h"

namespace scene {

/// What is left when everybody has ended.
struct Outcome {
    uint32_t leakedBlocks = 0;
    std::vector<std::string> complaints;
};

/// A new domain with two bystanders at work, for one operation.
class Stage {
public:
    explicit Stage(const Operation& operation);

    const linxtest::TestDomain& domain() const { return domain_; }
    Progress& progress() const { return *progress_; }

    /// Waits until the victim is there, has the bystanders begin, and leaves the operation's corpse, which is what
    /// `dieInside` makes of it if it is to hold the lock. Returns the corpse's spid.
    LinxSpid enter(const Child& victim, const std::function<void()>& dieInside);

    /// Whether those go on at work who need no lock, while the victim stands still.
    bool othersGoOn() const;

    /// After the victim's end: has the others come to theirs, and looks at what they and the arena say.
    Outcome end();

private:
    const Operation& operation_;
    const linxtest::TestDomain domain_;
    const linxtest::ScopedVariable size_;
    const linxtest::ScopedVariable awake_;
    const Shared<Progress> progress_;
    Child second_;
    const LinxSpid mirror_;
    Child first_;
    const LinxSpid conductor_;
    Capturer capturer_;
};

}  // namespace scene

#endif
