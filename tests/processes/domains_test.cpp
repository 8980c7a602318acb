// Which domain a process is in, and that domains do not see each other.

#include <unistd.h>

#include <filesystem>

#include "tests/kit/child.h"
#include "tests/kit/domain_test.h"
#include "tests/kit/signals.h"

namespace {

using Meeting = ProcessTest;

TEST_F(Meeting, TwoDomainsDoNotSeeEachOther) {
    const linxtest::TestDomain other;
    Child elsewhere([](Line& parent) {
        Endpoint same("same");
        Endpoint only("only");
        parent.tell();
        parent.hear();
    });
    elsewhere.hear();
    const linxtest::ScopedVariable back("LINX_DOMAIN", domain.path().c_str());
    Endpoint same("same");
    ASSERT_EQ(linx_hunt(same, "only", nullptr), 0);
    expectNothing(same);
    elsewhere.tell();
    EXPECT_EQ(elsewhere.exitStatus(), 0);
}

TEST_F(Meeting, OneProcessMayBeInTwoDomains) {
    Endpoint here("here");
    const linxtest::TestDomain other;
    Endpoint there("there");
    ASSERT_EQ(linx_hunt(here, "there", nullptr), 0);
    expectNothing(here);
    Endpoint neighbour("neighbour");
    EXPECT_EQ(hunt(there, "neighbour"), spidOf(neighbour));
}

TEST_F(Meeting, ABareWordIsADomainBesideTheDefault) {
    const std::string word = "test" + std::to_string(getpid());
    const std::string path = "/dev/shm/linx." + std::to_string(geteuid()) + "." + word;
    {
        Child server([&](Line& parent) {
            const linxtest::ScopedVariable bare("LINX_DOMAIN", word.c_str());
            Endpoint endpoint("server");
            parent.tell(spidOf(endpoint));
            parent.hear();
        });
        const LinxSpid spid = server.hear();
        const linxtest::ScopedVariable absolute("LINX_DOMAIN", path.c_str());
        Endpoint client("client");
        EXPECT_EQ(hunt(client, "server"), spid);
        server.tell();
        EXPECT_EQ(server.exitStatus(), 0);
    }
    EXPECT_GT(std::filesystem::remove_all(path), 0u);
}

}  // namespace
