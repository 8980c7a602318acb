// Where $LINX_TEST_THROUGH is set, the other side of a test lives in a domain of its own behind two links.

#include "tests/kit/role_test.h"
#include "tests/link/program/nodes.h"

namespace {

/// The domain of the other side, and the links. Which domain this process opens endpoints in stays as it was.
class BehindLinks : public OtherSide {
public:
    explicit BehindLinks(const std::string& near)
        : nodes_({near, far_.path()}),
          links_{nodes_.start(0), nodes_.start(1)},
          domain_("LINX_DOMAIN", near.c_str()) {
        EXPECT_TRUE(links_[0]->hasLogged(linktest::Nodes::linkTo(1) + " is up; over there: " + linktest::machine));
        EXPECT_TRUE(links_[1]->hasLogged(linktest::Nodes::linkTo(0) + " is up; over there: " + linktest::machine));
    }
    ~BehindLinks() override {
        for (const auto& link : links_) EXPECT_EQ(link->end(SIGTERM), 0);
    }
    std::string domain() const override { return far_.path(); }

private:
    const linxtest::TestDomain far_;
    const linktest::Nodes nodes_;
    const std::unique_ptr<linktest::Running> links_[2];
    const linxtest::ScopedVariable domain_;
};

const bool isChosen = [] {
    if (std::getenv("LINX_TEST_THROUGH") == nullptr) return false;
    OtherSide::make = [](const std::string& near) -> std::unique_ptr<OtherSide> {
        return std::make_unique<BehindLinks>(near);
    };
    return true;
}();

}  // namespace
