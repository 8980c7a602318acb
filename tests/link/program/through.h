#ifndef LINXIPC_TESTS_LINK_PROGRAM_THROUGH_H
#define LINXIPC_TESTS_LINK_PROGRAM_THROUGH_H

#include "tests/kit/child.h"
#include "tests/kit/domain.h"
#include "tests/kit/signals.h"
#include "tests/link/program/running.h"

namespace linktest {

/// What is opened in its scope is opened in this domain.
class In {
public:
    explicit In(const linxtest::TestDomain& domain) : variable_("LINX_DOMAIN", domain.path().c_str()) {}

private:
    linxtest::ScopedVariable variable_;
};

/// Two domains with a link each: "toFar" in the near one, "toNear" in the far one.
class ThroughTest : public ProgramTest {
protected:
    ThroughTest() {
        setenv("LINX_LOG", "stderr", 1);
        unsetenv("LINX_LOG_LEVEL");
        address = TakenPort().address();  // and free again
    }
    void TearDown() override {
        nearLink.reset();
        farLink.reset();
        EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a process was left behind";
    }

    /// `near` and `far` are what else stands in the [[link]] of the two.
    void configureBoth(const std::string& nearRules = all, const std::string& farRules = all) {
        configure("key = \"link.key\"\nlisten = \"" + address + "\"\ndomain = \"" + near.path() + "\"\n" +
                      linkTo(peerKey, "toFar") + nearRules,
                  "near.conf");
        configure("key = \"peer.key\"\ndomain = \"" + far.path() + "\"\n" + linkTo(ownKey, "toNear") +
                      "connect = \"" + address + "\"\n" + farRules,
                  "far.conf");
    }
    void startNear() { nearLink.emplace(directory, "near.conf"); }
    void startFar() { farLink.emplace(directory, "far.conf"); }
    void awaitUp() {
        EXPECT_TRUE(nearLink->hasLogged("toFar is up; over there: " + machine));
        EXPECT_TRUE(farLink->hasLogged("toNear is up; over there: " + machine));
    }
    void startBoth(const std::string& nearRules = all, const std::string& farRules = all) {
        configureBoth(nearRules, farRules);
        startNear();
        startFar();
        awaitUp();
    }

    static constexpr const char* all = "export = [\"*\"]\n";

    std::string address;
    const linxtest::TestDomain near;
    const linxtest::TestDomain far;
    std::optional<Running> nearLink;
    std::optional<Running> farLink;
};

/// An endpoint in that domain.
inline std::unique_ptr<Endpoint> openIn(const linxtest::TestDomain& domain, const std::string& name) {
    const In in(domain);
    return std::make_unique<Endpoint>(name);
}

}  // namespace linktest

#endif
