// The tap: what it shows, and that it holds nobody up, whatever becomes of its owner or is written into it.

#include "inspect/tap.h"

#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <random>

#include "host/arena/layout.h"
#include "host/record/tap_file.h"
#include "tests/kit/child.h"
#include "tests/kit/domain_test.h"
#include "tests/kit/signals.h"
#include "tests/kit/small_arena.h"

namespace {

using linx::inspect::Place;
using linx::inspect::Sent;
using linx::inspect::Tap;

constexpr uint32_t snapBytes = 64;
constexpr int soon = 5000;  ///< milliseconds, within which what was sent is shown

class TapTest : private linxtest::SmallArena, public ProcessTest {
protected:
    std::unique_ptr<Tap> take(uint32_t bytes = snapBytes) {
        Place place;
        EXPECT_TRUE(place.openDirectory(domain.path()));
        return Tap::take(place, bytes);
    }

    /// A process that captures, and says so, and has seen a signal of the number 1 when it says so again.
    std::unique_ptr<Child> reader() {
        return std::make_unique<Child>([this](Line& test) {
            const auto tap = take();
            ASSERT_NE(tap, nullptr) << std::strerror(errno);
            test.tell();
            ASSERT_EQ(nextOf(*tap).number, 1u);
            test.tell();
            test.hear();
        });
    }

    Sent nextOf(Tap& tap) {
        Sent sent;
        EXPECT_TRUE(tap.next(sent, soon));
        return sent;
    }

    uint32_t wordOfTap() const {
        const int file = open(domain.pathOf("arena").c_str(), O_RDONLY | O_CLOEXEC);
        uint32_t word = 0;
        EXPECT_EQ(pread(file, &word, sizeof word, offsetof(linx::Header, tap)), static_cast<ssize_t>(sizeof word));
        close(file);
        return word;
    }
};

TEST_F(TapTest, ShowsWhatIsSentWithItsFirstBytes) {
    Endpoint a("a"), b("b");
    ASSERT_EQ(send(a, spidOf(b), 1), 0);  // they know each other now
    const auto tap = take();
    ASSERT_NE(tap, nullptr) << std::strerror(errno);
    const Bytes shortOne = pattern(20, 1), longOne = pattern(1000, 2);
    ASSERT_EQ(sendBytes(a, spidOf(b), 2, shortOne), 0);
    ASSERT_EQ(sendBytes(b, spidOf(a), 3, longOne), 0);
    ASSERT_EQ(send(a, spidOf(a), 4), 0);
    const Sent first = nextOf(*tap), second = nextOf(*tap), third = nextOf(*tap);
    EXPECT_EQ(first.number, 2u);
    EXPECT_EQ(first.size, 24u);
    EXPECT_EQ(spidOf(a), linx::numberOf(first.from));
    EXPECT_EQ(spidOf(b), linx::numberOf(first.to));
    EXPECT_EQ(shortOne, first.data);
    EXPECT_EQ(second.number, 3u);
    EXPECT_EQ(second.size, 1004u);
    EXPECT_EQ(Bytes(longOne.begin(), longOne.begin() + snapBytes), second.data);
    EXPECT_EQ(third.number, 4u);
    EXPECT_TRUE(third.data.empty());
    EXPECT_LE(first.nanoseconds, second.nanoseconds);
    EXPECT_EQ(tap->lost(), 0u);
    Sent none;
    EXPECT_FALSE(tap->next(none, 0));
}

TEST_F(TapTest, ThatIsStoppedStillShowsWhatWasSentBefore) {
    Endpoint a("a"), b("b");
    const auto tap = take();
    ASSERT_NE(tap, nullptr) << std::strerror(errno);
    for (uint32_t number = 1; number <= 3; ++number) ASSERT_EQ(send(a, spidOf(b), number), 0);
    tap->stop();
    EXPECT_EQ(wordOfTap(), 0u);
    ASSERT_EQ(send(a, spidOf(b), 4), 0);
    Sent sent;
    for (uint32_t number = 1; number <= 3; ++number) {
        ASSERT_TRUE(tap->next(sent, 0));
        EXPECT_EQ(sent.number, number);
    }
    EXPECT_FALSE(tap->next(sent, 0));
    EXPECT_EQ(tap->lost(), 0u);
}

TEST_F(TapTest, LeavesNothingBehindAndIsTakenAgain) {
    Endpoint a("a"), b("b");
    for (uint32_t round = 0; round < 3; ++round) {
        const auto tap = take();
        ASSERT_NE(tap, nullptr) << std::strerror(errno);
        EXPECT_NE(wordOfTap(), 0u);
        ASSERT_EQ(send(a, spidOf(b), round), 0);
        EXPECT_EQ(nextOf(*tap).number, round);
    }
    EXPECT_EQ(wordOfTap(), 0u);
    ASSERT_EQ(send(a, spidOf(b), 9), 0);
    EXPECT_EQ(domain.files().size(), 3u) << "the arena and two doorbells";
}

TEST_F(TapTest, ShowsASignalOfTheLargestSizeWholeWhereThatIsWanted) {
    Endpoint a("a"), b("b");
    constexpr uint32_t most = linx::maxSignalBytes - sizeof(LinxSignal);
    const auto tap = take(most);
    ASSERT_NE(tap, nullptr) << std::strerror(errno);
    const Bytes all = pattern(most, 3);
    ASSERT_EQ(sendBytes(a, spidOf(b), 1, all), 0);
    EXPECT_TRUE(all == nextOf(*tap).data);
}

TEST_F(TapTest, CountsWhatAReaderDoesNotTakeAndHoldsNobodyUp) {
    Endpoint a("a"), b("b");
    const auto tap = take();
    ASSERT_NE(tap, nullptr) << std::strerror(errno);
    constexpr uint32_t signals = 5000;
    for (uint32_t i = 0; i < signals; ++i) {
        ASSERT_EQ(send(a, spidOf(b), i, {i, i}), 0);
        expectSignal(b, i);
    }
    uint32_t taken = 0;
    for (Sent sent; tap->next(sent, 0); ++taken) ASSERT_EQ(sent.number, taken);
    EXPECT_GT(tap->lost(), 0u);
    EXPECT_EQ(signals, taken + tap->lost());
    ASSERT_EQ(send(a, spidOf(b), 1), 0);
    EXPECT_EQ(nextOf(*tap).number, 1u) << "there is room again";
}

TEST_F(TapTest, IsOnlyOnes) {
    Endpoint a("a");
    const auto tap = take();
    ASSERT_NE(tap, nullptr) << std::strerror(errno);
    EXPECT_EQ(take(), nullptr);
    EXPECT_EQ(errno, EBUSY);
}

TEST_F(TapTest, OfTheSuperuserShowsWhatIsSentInSomebodysDomain) {
    if (geteuid() != 0) GTEST_SKIP() << "only the superuser can become others";
    constexpr uid_t user = 65534;
    constexpr gid_t group = 65531;
    ASSERT_EQ(chown(domain.path().c_str(), user, group), 0);
    Child sender([this](Line& test) {
        ASSERT_EQ(setgroups(0, nullptr), 0);
        ASSERT_EQ(setresgid(group, group, group), 0);
        ASSERT_EQ(setresuid(user, user, user), 0);
        dieWithParent();
        Endpoint a("a"), b("b");
        test.tell();
        test.hear();
        ASSERT_EQ(send(a, spidOf(b), 1), 0);
        test.tell();
        test.hear();
        EXPECT_NE(take(), nullptr) << "what the superuser has left is in nobody's way";
    });
    sender.hear();
    const auto superuser = reader();
    superuser->hear();
    sender.tell();
    sender.hear();
    superuser->hear();
    superuser->kill9();
    sender.tell();
    EXPECT_EQ(sender.exitStatus(), 0);
}

TEST_F(TapTest, OfAKilledReaderIsEndedByTheNextSenderAndTakenByTheNextReader) {
    Endpoint a("a"), b("b");
    const auto killed = reader();
    killed->hear();
    ASSERT_EQ(send(a, spidOf(b), 1), 0);
    killed->hear();
    killed->kill9();
    EXPECT_NE(wordOfTap(), 0u);
    ASSERT_EQ(send(b, spidOf(a), 2), 0) << "one who has no ring yet";
    EXPECT_EQ(wordOfTap(), 0u);
    EXPECT_EQ(access(domain.pathOf("tap").c_str(), F_OK), -1) << "its file takes memory no more";
    const auto tap = take();
    ASSERT_NE(tap, nullptr) << std::strerror(errno);
    ASSERT_EQ(send(a, spidOf(b), 3), 0);
    EXPECT_EQ(nextOf(*tap).number, 3u);
}

TEST_F(TapTest, ShowsSignalsOfSeveralProcessesInTheirOrder) {
    constexpr uint32_t rounds = 200;
    Child echo([](Line& test) {
        Endpoint endpoint("echo");
        test.tell(spidOf(endpoint));
        for (uint32_t i = 0; i < rounds; ++i) {
            const Received request = expectSignal(endpoint, 2 * i);
            ASSERT_EQ(send(endpoint, request.sender, 2 * i + 1), 0);
        }
    });
    const LinxSpid spid = echo.hear();
    Endpoint client("client");
    const auto tap = take();
    ASSERT_NE(tap, nullptr) << std::strerror(errno);
    uint32_t expected = 0;
    for (uint32_t i = 0; i < rounds; ++i) {
        ASSERT_EQ(send(client, spid, 2 * i), 0);
        expectSignal(client, 2 * i + 1);
    }
    for (Sent sent; expected < 2 * rounds && tap->next(sent, soon); ++expected) ASSERT_EQ(sent.number, expected);
    EXPECT_EQ(2 * rounds, expected);
    EXPECT_EQ(echo.exitStatus(), 0);
}

TEST_F(TapTest, ShowsWhatWasSentWhileItLookedBehindWhatItFindsNext) {
    Endpoint a("a"), b("b");
    const auto tap = take();
    ASSERT_NE(tap, nullptr) << std::strerror(errno);
    ASSERT_EQ(send(b, spidOf(a), 2), 0);
    // An hour ahead: for a look that begins now, it was sent amid the look.
    const int file = open(domain.pathOf("tap").c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_NE(file, -1);
    const uint64_t ring = linx::tap::ringOffset(linx::tap::leastRingBytes, indexOf(linx::Spid{spidOf(b)}));
    const auto at = static_cast<off_t>(ring + linx::pageBytes + offsetof(linx::tap::Entry, nanoseconds));
    uint64_t time = 0;
    ASSERT_EQ(pread(file, &time, sizeof time, at), static_cast<ssize_t>(sizeof time));
    time += uint64_t{3600} * 1000000000;
    ASSERT_EQ(pwrite(file, &time, sizeof time, at), static_cast<ssize_t>(sizeof time));
    close(file);
    Sent sent;
    EXPECT_FALSE(tap->next(sent, 0));
    ASSERT_EQ(send(a, spidOf(b), 1), 0);
    EXPECT_EQ(nextOf(*tap).number, 1u);
    EXPECT_EQ(nextOf(*tap).number, 2u) << "whatever the clock says, it waits once";
}

TEST_F(TapTest, SurvivesWhateverIsWrittenIntoIt) {
    Endpoint a("a"), b("b");
    const auto tap = take();
    ASSERT_NE(tap, nullptr) << std::strerror(errno);
    ASSERT_EQ(send(a, spidOf(b), 1), 0);
    expectSignal(b, 1);
    const int file = open(domain.pathOf("tap").c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_NE(file, -1);
    constexpr uint32_t ringBytes = linx::tap::leastRingBytes;
    const auto ring = static_cast<off_t>(linx::tap::ringOffset(ringBytes, indexOf(linx::Spid{spidOf(a)})));
    std::mt19937 random(1);
    for (uint32_t i = 0; i < 2000 && !HasFailure(); ++i) {
        const auto any = static_cast<uint32_t>(random());
        const uint32_t word = i % 3 == 0 ? ~0u : i % 3 == 1 ? any : any % (2 * ringBytes);
        const auto at = static_cast<off_t>(i % 2 == 0 ? random() % 2 * 4 : linx::pageBytes + random() % 4096);
        ASSERT_EQ(pwrite(file, &word, sizeof word, ring + at), static_cast<ssize_t>(sizeof word));
        ASSERT_EQ(send(a, spidOf(b), i), 0);
        expectSignal(b, i);
        Sent sent;
        while (tap->next(sent, 0)) ASSERT_LE(sent.data.size(), ringBytes);
    }
    close(file);
}

}  // namespace
