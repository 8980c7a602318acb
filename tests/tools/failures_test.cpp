// Domains that are not there, are not ours, are damaged, or die meanwhile: a clear line, and the right exit status.

#include <gmock/gmock.h>
#include <grp.h>
#include <sys/stat.h>

#include <cstring>
#include <filesystem>
#include <random>

#include "host/arena/layout.h"
#include "host/debug/validate.h"
#include "tests/kit/garbler.h"
#include "tests/kit/look_around.h"
#include "tests/kit/shared.h"
#include "tests/tools/scene.h"

namespace {

using linx::inspect::Place;
using testing::HasSubstr;
using testing::StartsWith;

const std::vector<std::vector<std::string>> readers = {{"list"},
                                                       {"status", "server"},
                                                       {"holders"},
                                                       {"hz", "--timeout", "5ms"},
                                                       {"waits"},
                                                       {"record"},
                                                       {"top", "--timeout", "5ms", "--interval", "5ms"},
                                                       {"log", "server"},
                                                       {"doctor"},
                                                       {"graph", "--dot"},
                                                       {"report", "-o", "-"}};
const std::vector<std::vector<std::string>> senders = {{"send", "server", "1"},
                                                       {"call", "server", "1", "--reply", "2"},
                                                       {"wait", "server"},
                                                       {"shutdown", "server"}};
const std::vector<std::vector<std::string>> watchers = {{"monitor"}, {"capture", "-w", "-"}};

std::vector<std::vector<std::string>> allVerbs() {
    std::vector<std::vector<std::string>> all = readers;
    all.insert(all.end(), watchers.begin(), watchers.end());
    all.insert(all.end(), senders.begin(), senders.end());
    all.push_back({"links"});  // which reads, and asks where there is somebody to ask
    return all;
}

void expectFailure(const Outcome& outcome, int status, const std::string& begin, const std::string& verb) {
    EXPECT_EQ(status, outcome.status) << verb << outcome;
    EXPECT_EQ(outcome.out, "") << verb;
    EXPECT_THAT(outcome.err, StartsWith("linx: " + begin)) << verb;
    EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 1) << verb << outcome;
}

using NoDomain = ProcessTest;

TEST_F(NoDomain, IsSaidByEveryVerbAndNoneIsMade) {
    for (const auto& verb : allVerbs()) {
        expectFailure(runLinx(verb), 5, "there is no domain at " + domain.path(), verb[0]);
    }
    EXPECT_TRUE(domain.files().empty());
    for (const auto& verb : allVerbs()) {
        std::vector<std::string> elsewhere = verb;
        elsewhere.insert(elsewhere.end(), {"--domain", domain.pathOf("absent")});
        expectFailure(runLinx(elsewhere), 5, "there is no domain at " + domain.pathOf("absent"), verb[0]);
    }
    EXPECT_TRUE(domain.files().empty());
}

TEST_F(NoDomain, AnEmptyOneHasNobody) {
    Endpoint("passing").close();
    EXPECT_EQ(runLinx({"list"}).out,
              "NAME  SPID  PID  PROCESS  USER  STATE  QUEUED  DEEPEST  IN  OUT  HELD  WAITS-FOR\n");
    EXPECT_EQ((Outcome{0, "[]\n", ""}), runLinx({"list", "-j"}));
    EXPECT_EQ((Outcome{0, "[]\n", ""}), runLinx({"holders", "-j"}));
    EXPECT_EQ((Outcome{0, "nothing found\n", ""}), runLinx({"doctor"}));
    EXPECT_EQ((Outcome{0, "[]\n", ""}), runLinx({"doctor", "-j"}));
    EXPECT_EQ((Outcome{0, "{\"nodes\":[],\"edges\":[]}\n", ""}), runLinx({"graph", "-j"}));
    EXPECT_EQ(runLinx({"graph", "--dot"}).status, 0);
    EXPECT_THAT(runLinx({"report", "-o", "-"}).out, HasSubstr("Nothing is recorded of anybody."));
    expectFailure(runLinx({"status", "server"}), 3, "no endpoint is called 'server'", "status");
    expectFailure(runLinx({"holders", "server"}), 3, "no endpoint is called 'server'", "holders");
}

TEST_F(NoDomain, WhatIsNoUsageIsSaidAndNothingDone) {
    const std::vector<std::vector<std::string>> wrong = {{"no-such-verb"},
                                                         {"list", "--no-such-option"},
                                                         {"status"},
                                                         {"send", "name"},
                                                         {"call", "name", "1"},
                                                         {"list", "-N", "many"},
                                                         {"wait", "name", "--timeout", "soon"},
                                                         {"wait", "name", "--timeout", "-1"},
                                                         {"wait", "name", "--timeout", "1h"},
                                                         {"list", "--domain", "a/b"},
                                                         {"send", "name", "1", "--domain", "a/b"},
                                                         {"list", "--domain", ""},
                                                         {"list", "--file", ""},
                                                         {"holders", ""},
                                                         {"--file", "arena", "send", "name", "1"},
                                                         {"--file", "arena", "monitor"},
                                                         {"--file", "arena", "capture", "-w", "-"},
                                                         {"graph", ""},
                                                         {"report"},
                                                         {"report", "-o", ""},
                                                         {"completion"},
                                                         {"completion", "csh"},
                                                         {"monitor", ""},
                                                         {"monitor", "--number", "many"},
                                                         {"monitor", "--number"},
                                                         {"monitor", "--from", ""},
                                                         {"monitor", "--snaplen", "-1"},
                                                         {"monitor", "--snaplen", "1048577"},
                                                         {"monitor", "-w", "-"},
                                                         {"capture"},
                                                         {"capture", "-w"},
                                                         {"capture", "-w", ""},
                                                         {"capture", "-w", "-", "--domain", "a/b"},
                                                         {"replay"},
                                                         {"replay", "one", "two"},
                                                         {"replay", "file", "--to", ""},
                                                         {"replay", "file", "--pace", "slow"},
                                                         {"replay", "file", "--pace", "-1"},
                                                         {"replay", "file", "--pace", "inf"}};
    for (const auto& words : wrong) {
        const Outcome outcome = runLinx(words);
        EXPECT_EQ(outcome.status, 2) << testing::PrintToString(words) << outcome;
        EXPECT_EQ(outcome.out, "");
        EXPECT_NE(outcome.err, "");
    }
    Endpoint peer("peer");
    EXPECT_EQ(runLinx({"report", "-o", "-", "--json"}).status, 2);
    EXPECT_EQ(runLinx({"send", "", "1"}).status, 2);
    EXPECT_EQ(runLinx({"send", std::string(256, 'x'), "1"}).status, 2);
}

/// Has this process be nobody, as far as it can choose.
void becomeNobody() {
    constexpr uid_t nobody = 65534;
    if (geteuid() != 0) return;
    ASSERT_EQ(setgroups(0, nullptr), 0);
    ASSERT_EQ(setresgid(nobody, nobody, nobody), 0);
    ASSERT_EQ(setresuid(nobody, nobody, nobody), 0);
}

TEST_F(NoDomain, WhoMayReadItAloneSeesItAndSteersNobody) {
    Endpoint server("server");
    const std::string arena = domain.pathOf("arena");
    chmod(domain.path().c_str(), 0755);
    chmod(arena.c_str(), 0444);
    Child stranger([&](Line&) {
        becomeNobody();
        if (access(LINX_PROGRAM, X_OK) == -1) return;  // in somebody's home
        EXPECT_EQ(runLinx({"list"}).status, 0);
        EXPECT_EQ(runLinx({"log", "server"}).out, "530\n");
        expectFailure(runLinx({"log", "server", "1234"}), 1, "", "log");
        for (const auto& verb : watchers) expectFailure(runLinx(verb), 1, "", verb[0]);
        for (const auto& verb : senders) expectFailure(runLinx(verb), 1, "the domain cannot be joined: ", verb[0]);
    });
    EXPECT_EQ(stranger.exitStatus(), 0);
    chmod(arena.c_str(), 0600);
    EXPECT_EQ(runLinx({"log", "server"}).out, "530\n");
    EXPECT_EQ(domain.files().size(), 2u) << "the arena and a doorbell";
}

TEST_F(NoDomain, WhoMayNotReadItIsTold) {
    Endpoint server("server");
    const bool isRoot = geteuid() == 0;
    if (!isRoot) chmod(domain.pathOf("arena").c_str(), 0);
    Child stranger([&](Line&) {
        becomeNobody();
        if (access(LINX_PROGRAM, X_OK) == -1) return;  // in somebody's home
        for (const auto& verb : allVerbs()) {
            expectFailure(runLinx(verb), 1, "no permission to read " + domain.path(), verb[0]);
        }
    });
    EXPECT_EQ(stranger.exitStatus(), 0);
    if (!isRoot) chmod(domain.pathOf("arena").c_str(), 0600);
}

using Foreign = ProcessTest;

TEST_F(Foreign, WhatIsNoArenaIsSaidToBeNone) {
    std::ofstream(domain.pathOf("arena")) << "something else";
    for (const auto& verb : allVerbs()) {
        const bool isReader = std::find(senders.begin(), senders.end(), verb) == senders.end();
        if (isReader && verb[0] != "doctor") {
            expectFailure(runLinx(verb), 5, "what lies at " + domain.path() + " is no arena of this make", verb[0]);
        }
    }
    for (const auto& verb : senders) {
        expectFailure(runLinx(verb), 1, "the domain cannot be joined: Protocol error", verb[0]);
    }
}

TEST_F(Foreign, NothingButARegularFileIsOpened) {
    ASSERT_EQ(mkfifo(domain.pathOf("arena").c_str(), 0600), 0);
    for (const auto& verb : allVerbs()) EXPECT_EQ(runLinx(verb).status, 5) << verb[0];
    std::filesystem::remove(domain.pathOf("arena"));
    std::filesystem::create_symlink("/dev/zero", domain.pathOf("arena"));
    for (const auto& verb : allVerbs()) EXPECT_EQ(runLinx(verb).status, 5) << verb[0];
    EXPECT_EQ(runLinx({"list", "--file", "/dev/zero"}).status, 5);
}

TEST_F(Foreign, AnotherVersionAndAnotherByteOrderAreNoArenas) {
    Endpoint("passing").close();
    const std::string arena = domain.pathOf("arena");
    const auto write = [&](size_t offset, uint32_t word) {
        std::fstream file(arena, std::ios::in | std::ios::out | std::ios::binary);
        file.seekp(static_cast<std::streamoff>(offset));
        file.write(reinterpret_cast<const char*>(&word), sizeof word);
    };
    write(offsetof(linx::Header, version), linx::arenaVersion - 1);
    EXPECT_EQ(runLinx({"list"}).status, 5);
    write(offsetof(linx::Header, version), linx::arenaVersion);
    EXPECT_EQ(runLinx({"list"}).status, 0);
    write(offsetof(linx::Header, magic), __builtin_bswap32(linx::arenaMagic));
    EXPECT_EQ(runLinx({"list"}).status, 5);
}

/// A copy of the scene's arena, to be spoilt.
class Spoilt : public SceneTest {
protected:
    Spoilt() {
        std::filesystem::copy_file(domain.pathOf("arena"), copy);
        server->tell();
        client->tell();
        EXPECT_EQ(server->exitStatus(), 0);
        EXPECT_EQ(client->exitStatus(), 0);
    }

    const std::string copy = domain.pathOf("copy");
};

TEST_F(Spoilt, AnArenaThatWasCutShortIsToldWhereverItWasCut) {
    const uintmax_t bytes = std::filesystem::file_size(copy);
    for (const uintmax_t left : {bytes - 1, uintmax_t{linx::pageMapOffset}, uintmax_t{linx::slotsOffset + 700},
                                 uintmax_t{sizeof(linx::Header)}, uintmax_t{7}, uintmax_t{0}}) {
        std::filesystem::resize_file(copy, left);
        for (auto verb : readers) {
            if (verb[0] == "doctor") continue;
            verb.insert(verb.end(), {"--file", copy});
            expectFailure(runLinx(verb), 5, "what lies at " + copy + " is no arena of this make", verb[0]);
        }
        EXPECT_THAT(runLinx({"doctor", "--file", copy}).out, StartsWith("foreign-arena: "));
    }
}

void readAll(const std::string& path) {
    Place place;
    ASSERT_TRUE(place.openFile(path));
    const std::unique_ptr<linxtest::Sight> sight = linxtest::lookAround(place);
    if (sight == nullptr) {
        EXPECT_EQ(errno, EPROTO);
        return;
    }
    EXPECT_GE(linx::slotCount, sight->endpoints.size());
    EXPECT_GE(linx::huntCount, sight->hunts.size());
    for (const auto& record : sight->records) EXPECT_GE(linx::eventCount, record.size());
}

TEST_F(Spoilt, WordsThatDoNotBelongThereMisleadNobodyOutOfTheArena) {
    std::mt19937 random(1);
    const auto draw = [&](uint32_t bound) { return static_cast<uint32_t>(random() % bound); };
    std::fstream file(copy, std::ios::in | std::ios::out | std::ios::binary);
    std::string bytes = contentOf(copy);
    linx::Header header;
    std::memcpy(static_cast<void*>(&header), bytes.data(), sizeof header);
    linxtest::Garbler garbler(bytes.data(), header.pageCount.loadRelaxed(), draw);
    const size_t used = (linx::firstPoolPage(header.pageCount.loadRelaxed()) + header.pagesUsed.loadRelaxed()) *
                        size_t{linx::pageBytes};
    for (int round = 0; round < 150; ++round) {
        for (int words = 0; words < 4; ++words) {
            garbler.garble(static_cast<linxtest::Region>(draw(linxtest::regionCount - 1)));
        }
        // What says that it is an arena stays, or nothing else would be looked at.
        std::memcpy(bytes.data(), static_cast<void*>(&header), offsetof(linx::Header, dirty));
        file.seekp(0);
        file.write(bytes.data(), static_cast<std::streamsize>(used));
        file.flush();
        readAll(copy);
    }
}

TEST_F(Spoilt, RandomBytesEverywhereAreWithstood) {
    std::mt19937 random(2);
    std::fstream file(copy, std::ios::in | std::ios::out | std::ios::binary);
    std::vector<uint32_t> words((linx::pageMapOffset + (1u << 20)) / 4);
    for (int round = 0; round < 3; ++round) {
        for (uint32_t& word : words) word = static_cast<uint32_t>(random());
        file.seekp(offsetof(linx::Header, dirty));
        file.write(reinterpret_cast<const char*>(words.data()), static_cast<std::streamsize>(words.size() * 4));
        file.flush();
        readAll(copy);
    }
    for (auto verb : readers) {
        verb.insert(verb.end(), {"--file", copy});
        EXPECT_GE(3, runLinx(verb).status) << verb[0];
    }
}

class Dying : private linxtest::SmallArena, public ProcessTest {};

/// Opens, sends to itself and closes for ever.
void comeAndGo(Shared<Counters>& counters, uint32_t self) {
    for (uint32_t round = 0; !counters->finish; ++round) {
        Endpoint endpoint("passing." + std::to_string(self));
        const LinxSpid spid = spidOf(endpoint);
        for (uint32_t number = 1; number < 20; ++number) {
            if (send(endpoint, spid, number) != 0) return;
        }
        linx_hunt(endpoint, "absent", nullptr);
        receive(endpoint, 0);
        ++counters->steps;
    }
}

TEST_F(Dying, WhoReadsWhileAllComeAndGoAndAreKilledReadsOnlyWhatIs) {
    constexpr uint32_t crowd = 3;
    Shared<Counters> counters;
    std::vector<std::unique_ptr<Child>> children;
    const auto start = [&](uint32_t i) { return std::make_unique<Child>([&, i](Line&) { comeAndGo(counters, i); }); };
    for (uint32_t i = 0; i < crowd; ++i) children.push_back(start(i));
    ASSERT_TRUE(counters->steps.reaches(10));
    for (uint32_t round = 0; round < 12; ++round) {
        Place place;
        ASSERT_TRUE(place.openDirectory(domain.path()));
        const std::unique_ptr<linxtest::Sight> sight = linxtest::lookAround(place);
        ASSERT_NE(sight, nullptr);
        for (const auto& endpoint : sight->endpoints) {
            const bool isOurs = endpoint.name.size() == 9 && endpoint.name.compare(0, 8, "passing.") == 0;
            ASSERT_TRUE(isOurs && endpoint.name[8] >= '0' && endpoint.name[8] < '0' + char{crowd}) << endpoint.name;
            EXPECT_GE(20u, endpoint.account.queued.signals);
        }
        for (const auto& hunt : sight->hunts) EXPECT_EQ(hunt.name, "absent");
        for (const auto& event : sight->history) EXPECT_GE(linx::EventKind::closed, event.kind);
        std::unique_ptr<Child>& victim = children[round % crowd];
        victim->kill9();
        victim = start(round % crowd);
    }
    counters->finish = true;
    for (const auto& child : children) EXPECT_TRUE(child->endsInTime());
    children.clear();
}

}  // namespace
