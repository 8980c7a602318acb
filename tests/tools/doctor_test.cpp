// Each illness is planted, found, and named with its remedy; where nobody is ill nothing is found.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "host/arena/layout.h"
#include "tests/tools/scene.h"

namespace {

using testing::HasSubstr;
using Json = nlohmann::json;

class DoctorTest : public ProcessTest {
protected:
    static Json findings(std::vector<std::string> arguments = {}) {
        arguments.insert(arguments.begin(), {"doctor", "-j"});
        const Outcome outcome = runLinx(arguments);
        const Json all = Json::parse(outcome.out, nullptr, false);
        EXPECT_EQ(all.empty() ? 0 : 1, outcome.status) << outcome;
        EXPECT_EQ(outcome.err, "");
        return all;
    }

    static void expectHealth() { EXPECT_EQ((Outcome{0, "nothing found\n", ""}), runLinx({"doctor"})); }

    /// One finding, of this kind; returns it.
    static Json expectFound(const std::string& finding, const std::string& subject,
                            const std::vector<std::string>& arguments = {}) {
        const Json all = findings(arguments);
        if (all.size() != 1) {
            ADD_FAILURE() << all.dump(1);
            return {};
        }
        EXPECT_EQ(all[0].size(), 4u);
        EXPECT_EQ(finding, all[0]["finding"]);
        EXPECT_EQ(subject, all[0]["subject"]);
        EXPECT_NE(all[0]["text"], "");
        EXPECT_NE(all[0]["remedy"], "");
        return all[0];
    }

    static void cure(const Json& finding) {
        const std::string remedy = finding["remedy"];
        EXPECT_EQ(std::system(remedy.c_str()), 0) << remedy;
    }
};

/// An endpoint that is there until its process is told to end it.
void linger(const std::string& name, Line& test) {
    Endpoint endpoint(name);
    test.tell(spidOf(endpoint));
    test.hear();
}

TEST_F(DoctorTest, NothingIsFoundWhereTwoTalk) {
    Child server([](Line& test) { linger("server", test); });
    const LinxSpid spid = server.hear();
    Endpoint client("client");
    ASSERT_EQ(send(client, spid, 1), 0);
    expectHealth();
    server.tell();
    EXPECT_EQ(server.exitStatus(), 0);
}

TEST_F(DoctorTest, ANameCannotSmuggleACommandIntoARemedy) {
    Child server([](Line& test) { linger("x'; touch y; '", test); });
    server.hear();
    server.kill9();
    const Json finding = expectFound("dead", "x'; touch y; '");
    EXPECT_EQ(finding["remedy"], R"(linx wait --gone 'x'\''; touch y; '\''')");
}

TEST_F(DoctorTest, ANameThatLooksLikeAnOptionIsTakenForANameByTheRemedy) {
    Child server([](Line& test) { linger("-server", test); });
    server.hear();
    server.kill9();
    EXPECT_EQ(expectFound("dead", "-server")["remedy"], "linx wait --gone -- '-server'");
    EXPECT_EQ(runLinx({"wait", "--gone", "--", "-server"}).status, 0);
}

TEST_F(DoctorTest, TheDeadWhomNobodyHasClearedUpAfterAreFoundAndTheRemedyHelps) {
    Child server([](Line& test) { linger("server", test); });
    server.hear();
    server.kill9();
    const Json finding = expectFound("dead", "server");
    EXPECT_EQ(finding["remedy"], "linx wait --gone server");
    EXPECT_EQ(runLinx({"wait", "--gone", "server"}).status, 0);
    expectHealth();
}

TEST_F(DoctorTest, AStoppedProcessIsFoundAndTheRemedyHelps) {
    Child server([](Line& test) { linger("server", test); });
    server.hear();
    server.stop();
    const Json finding = expectFound("stopped", "server, process " + std::to_string(server.pid()));
    cure(finding);
    server.awaitSleep();
    expectHealth();
}

TEST_F(DoctorTest, AStoppedHolderOfTheLockIsFoundAndTheRemedyHelps) {
    Endpoint peer("peer");
    Child holder([&](Line& test) {
        const int arena = open(domain.pathOf("arena").c_str(), O_RDWR | O_CLOEXEC);
        ASSERT_EQ(flock(arena, LOCK_EX), 0);
        test.tell();
        test.hear();
        close(arena);
    });
    holder.hear();
    expectHealth();
    holder.stop();
    const Json finding =
        expectFound("stopped-lock-holder", processName() + ", process " + std::to_string(holder.pid()));
    cure(finding);
    holder.tell();
    EXPECT_EQ(holder.exitStatus(), 0);
    expectHealth();
}

TEST_F(DoctorTest, AHuntThatDoesNotEndIsFound) {
    Endpoint client("client");
    ASSERT_EQ(linx_hunt(client, "nobody", nullptr), 0);
    EXPECT_THAT(expectFound("hunt-pending", "client")["text"], HasSubstr("'nobody'"));
    Endpoint nobody("nobody");
    expectHealth();
}

TEST_F(DoctorTest, AReceiverThatHoardsAndASenderWhoseShareIsFullAreFound) {
    const linxtest::ScopedVariable size("LINX_ARENA_MB", "16");
    Endpoint hoarder("hoarder");
    Endpoint sender("sender");
    constexpr size_t bytes = 60000;
    while (LinxSignal* signal = linx_alloc(sender, bytes, 7))
        ASSERT_EQ(linx_send(sender, &signal, spidOf(hoarder)), 0);
    const Json all = findings();
    ASSERT_EQ(all.size(), 2u) << all.dump(1);
    EXPECT_EQ(all[0]["finding"], "hoard");
    EXPECT_EQ(all[0]["subject"], "hoarder");
    EXPECT_EQ(all[1]["finding"], "full-share");
    EXPECT_EQ(all[1]["subject"], "sender");
    while (receive(hoarder, 0)) {
    }
    expectHealth();
}

TEST_F(DoctorTest, ADoorbellOfNobodyIsFoundAndTheRemedyHelps) {
    Endpoint peer("peer");
    ASSERT_EQ(mkfifo(domain.pathOf("bell.00002005").c_str(), 0600), 0);
    cure(expectFound("left-over", domain.pathOf("bell.00002005")));
    expectHealth();
}

TEST_F(DoctorTest, FilesThatAnybodyMayWriteToAreFoundAndTheRemediesHelp) {
    Endpoint("passing").close();
    ASSERT_EQ(chmod(domain.path().c_str(), 0777), 0);
    cure(expectFound("permissions", domain.path()));
    ASSERT_EQ(chmod(domain.pathOf("arena").c_str(), 0666), 0);
    cure(expectFound("permissions", domain.pathOf("arena")));
    expectHealth();
}

TEST_F(DoctorTest, AGroupThatCannotJoinItsDomainIsFound) {
    Endpoint("passing").close();
    ASSERT_EQ(chmod(domain.path().c_str(), 02770), 0);
    expectFound("permissions", domain.pathOf("arena"));
}

TEST_F(DoctorTest, AnArenaOfAnotherMakeIsFound) {
    std::ofstream(domain.pathOf("arena")) << "something else";
    ASSERT_EQ(chmod(domain.pathOf("arena").c_str(), 0600), 0);
    expectFound("foreign-arena", domain.path());
}

TEST_F(DoctorTest, DisorderIsFound) {
    Endpoint peer("peer");
    std::fstream file(domain.pathOf("arena"), std::ios::in | std::ios::out | std::ios::binary);
    const auto setOpen = [&](uint32_t count) {
        file.seekp(offsetof(linx::Header, openEndpoints));
        file.write(reinterpret_cast<const char*>(&count), sizeof count);
        file.flush();
    };
    setOpen(2);
    EXPECT_THAT(expectFound("disorder", domain.path())["text"], HasSubstr("openEndpoints = open slots"));
    setOpen(1);
    expectHealth();
}

TEST_F(DoctorTest, ADomainOnADiskIsFound) {
    const std::filesystem::path folder = std::filesystem::current_path() / ("domain." + std::to_string(getpid()));
    std::filesystem::create_directory(folder);
    std::filesystem::permissions(folder, std::filesystem::perms::owner_all);
    {
        const linxtest::ScopedVariable there("LINX_DOMAIN", folder.c_str());
        const linxtest::ScopedVariable size("LINX_ARENA_MB", "4");
        Endpoint("passing").close();
        const Json all = findings();
        // Where this program is run on a tmpfs, it is none.
        if (!all.empty()) expectFound("not-tmpfs", folder);
    }
    std::filesystem::remove_all(folder);
}

}  // namespace
