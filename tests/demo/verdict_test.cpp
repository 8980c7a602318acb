#include "demo/verdict.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <string>
#include <vector>

#include "demo/roster.h"
#include "demo/stream.h"

namespace {

using demo::Fact;

struct Entry {
    e_Process server;
    Fact fact;
    std::uint64_t value;
};

constexpr std::uint64_t oldPid = 100;
constexpr std::uint64_t newPid = 200;

demo::Options oneRound() {
    demo::Options options;
    options.seed = 11;
    return options;
}

/// What is reported in one round in which everything happens.
std::vector<Entry> completeRound() {
    const demo::Options options = oneRound();
    std::vector<Entry> entries = {
        {e_GpsHal, Fact::huntedInVain, 0},
        {e_GpsHal, Fact::foundLate, 0},
        {e_UiMgr, Fact::connected, 3},
        {e_UiMgr, Fact::buttonRead, 'P'},
        {e_UiMgr, Fact::buttonRead, 'L'},
        {e_UiMgr, Fact::signalPolled, 0},
        {e_PlaybackMgr, Fact::streamPlayed, demo::streamChecksum(options.seed, 1, options.payload)},
        {e_UiMgr, Fact::positionTaken, oldPid},
        {demo::launcher, Fact::killed, oldPid},
        {e_WatchdogMgr, Fact::supervisorTold, 0},
        {e_StateMgr, Fact::supervisorTold, 0},
        {e_StateMgr, Fact::requestCutShort, EHOSTUNREACH},
        {e_WatchdogMgr, Fact::restarted, newPid},
        {e_StateMgr, Fact::reached, newPid},
        {e_UiMgr, Fact::reached, newPid}};
    for (int i = 0; i < 9; ++i) entries.push_back({e_WatchdogMgr, Fact::announced, 0});
    for (int i = 0; i < 8; ++i) entries.push_back({e_ConfigMgr, Fact::configGiven, 0});
    for (int i = 0; i < 8; ++i) entries.push_back({e_StateMgr, Fact::configTaken, 0});
    for (std::uint64_t tick = 1; tick <= 10; ++tick) entries.push_back({e_SysTickHal, Fact::tickFired, tick});
    for (std::uint64_t tick = 1; tick <= 10; ++tick) entries.push_back({e_UiMgr, Fact::tickSeen, tick});
    for (std::uint64_t i = 0; i < 6; ++i) entries.push_back({e_StreamMgr, Fact::chunkRelayed, i});
    for (const e_Process server : demo::roster) entries.push_back({server, Fact::receiveEnded, ESHUTDOWN});
    for (const e_Process server : demo::roster) entries.push_back({server, Fact::exited, 0});
    return entries;
}

std::vector<demo::Row> judgeThese(const std::vector<Entry>& entries, const demo::Remains& remains = {0, true}) {
    demo::Ledger ledger;
    for (const Entry& entry : entries) ledger.note(entry.server, entry.fact, entry.value);
    return demo::judge(ledger, oneRound(), remains);
}

std::size_t refused(const std::vector<demo::Row>& rows) {
    return static_cast<std::size_t>(
        std::count_if(rows.begin(), rows.end(), [](const demo::Row& row) { return !row.happened; }));
}

TEST(Verdict, SaysYesToEverythingAfterACompleteRound) {
    for (const demo::Row& row : judgeThese(completeRound())) EXPECT_TRUE(row.happened) << row.what;
}

TEST(Verdict, SaysNoToSomethingWhenAnyReportIsMissing) {
    const std::vector<Entry> all = completeRound();
    for (std::size_t i = 0; i < all.size(); ++i) {
        std::vector<Entry> some = all;
        some.erase(some.begin() + static_cast<std::ptrdiff_t>(i));
        EXPECT_NE(refused(judgeThese(some)), 0U)
            << "without report " << i << ", fact " << static_cast<int>(all[i].fact);
    }
}

TEST(Verdict, SaysNoToEverythingWhenNothingWasReported) {
    EXPECT_EQ(refused(judgeThese({}, {9, false})), 13U);
}

class VerdictOnAWrongValue : public testing::TestWithParam<Entry> {};

TEST_P(VerdictOnAWrongValue, IsNo) {
    std::vector<Entry> entries = completeRound();
    const Entry wrong = GetParam();
    const auto right = std::find_if(entries.begin(), entries.end(), [&](const Entry& entry) {
        return entry.fact == wrong.fact && entry.server == wrong.server;
    });
    ASSERT_NE(right, entries.end());
    right->value = wrong.value;
    EXPECT_EQ(refused(judgeThese(entries)), 1U);
}

INSTANTIATE_TEST_SUITE_P(
    Values, VerdictOnAWrongValue,
    testing::Values(Entry{e_UiMgr, Fact::connected, 1}, Entry{e_PlaybackMgr, Fact::streamPlayed, 1},
                    Entry{e_UiMgr, Fact::positionTaken, newPid}, Entry{e_StateMgr, Fact::requestCutShort, ETIMEDOUT},
                    Entry{e_StateMgr, Fact::reached, oldPid}, Entry{e_UiMgr, Fact::reached, oldPid},
                    Entry{e_SysTickHal, Fact::tickFired, 2}, Entry{e_UiMgr, Fact::tickSeen, 2},
                    Entry{e_StateMgr, Fact::receiveEnded, ETIMEDOUT}, Entry{e_StateMgr, Fact::exited, 256}));

TEST(Verdict, CountsWhatIsLeftBehind) {
    EXPECT_EQ(refused(judgeThese(completeRound(), {1, true})), 1U);
    EXPECT_EQ(refused(judgeThese(completeRound(), {0, false})), 1U);
}

/// Whether all is well of a round with other nodes that has these besides; the shutdown is not among it.
std::size_t refusedWithNodes(const std::vector<Entry>& besides) {
    demo::Ledger ledger;
    for (const Entry& entry : completeRound()) ledger.note(entry.server, entry.fact, entry.value);
    for (const Entry& entry : besides) ledger.note(entry.server, entry.fact, entry.value);
    for (int i = 0; i < 3; ++i) ledger.note(e_Offloader, Fact::receiveEnded, ESHUTDOWN);
    for (int i = 0; i < 3; ++i) ledger.note(e_Offloader, Fact::exited, 0);
    demo::Options options = oneRound();
    options.nodes = true;
    return refused(demo::judge(ledger, options, {0, true}));
}

TEST(Verdict, WantsTheEncodersOfBothNodesAndTheSameOneAfterTheCut) {
    const Entry cut = {demo::launcher, Fact::linkCut, 1};
    const Entry proxy = {e_Offloader, Fact::encoderLost, 0};
    const Entry link = {e_Offloader, Fact::linkLost, 0};
    const auto encoded = [](std::uint64_t pid) { return Entry{e_Offloader, Fact::encoded, pid}; };
    EXPECT_EQ(refusedWithNodes({encoded(1), encoded(2), cut, proxy, link, encoded(1)}), 0U);
    EXPECT_EQ(refusedWithNodes({encoded(2), encoded(1), cut, proxy, link, encoded(1)}), 0U);
    EXPECT_EQ(refusedWithNodes({encoded(1), encoded(2), cut, proxy, link, encoded(3)}), 1U);
    EXPECT_EQ(refusedWithNodes({encoded(1), encoded(1), cut, proxy, link, encoded(1)}), 1U);
    EXPECT_EQ(refusedWithNodes({encoded(1), encoded(2), cut, proxy, link}), 1U);
    EXPECT_EQ(refusedWithNodes({encoded(1), encoded(2), cut, proxy, encoded(1)}), 1U);
    EXPECT_EQ(refusedWithNodes({encoded(1), encoded(2), cut, link, encoded(1)}), 1U);
    EXPECT_EQ(refusedWithNodes({encoded(1), encoded(2), proxy, link, encoded(1)}), 1U);
}

}  // namespace
