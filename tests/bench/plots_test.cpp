#include "bench/report/plots.h"

#include <gmock/gmock.h>

#include <map>
#include <regex>

#include "bench/harness/check.h"
#include "bench/peers/list.h"

namespace bench {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

Record taking(const std::string& peer, std::size_t payload, double nanoseconds) {
    return {"round-trip", peer, Placement::apart,
            payload,      2,    {{"median_ns", spreadOf({nanoseconds})}, {"p99_ns", spreadOf({nanoseconds})}}};
}

/// All that `expression` finds in the script of these records, each time its first group.
std::vector<std::string> found(const Records& records, const std::string& expression) {
    const std::string script = plotScript("somewhere", records);
    const std::regex regex(expression);
    std::vector<std::string> found;
    for (std::sregex_iterator match(script.begin(), script.end(), regex), end; match != end; ++match) {
        found.push_back((*match)[1]);
    }
    return found;
}

/// Titles in the order of the first plot's legend.
std::vector<std::string> legend(const Records& records) {
    const std::vector<std::string> titles = found(records, "lw [0-9.]+ title '([^']*)'");
    std::vector<std::string> first;
    for (const std::string& title : titles) {
        if (!first.empty() && title == first.front()) break;
        first.push_back(title);
    }
    return first;
}

const std::vector<std::string> everybody = {linxIpcName,        bareMemoryName, iceoryxName,
                                            iceoryxPollingName, seqpacketName,  zeromqName,
                                            messageQueueName,   nngName,        dbusName};

Records ofEverybody() {
    Records records;
    double nanoseconds = 1000;
    for (const std::string& peer : everybody) {
        records.push_back(taking(peer, 64, nanoseconds *= 2));
        records.push_back(taking(peer, 256, nanoseconds));
    }
    return records;
}

}  // namespace

TEST(Plots, EveryPeerHasAColourAndAShapeOfItsOwnTheSameInAllPlots) {
    const auto styles = found(ofEverybody(), "with linespoints (lc rgb '#[0-9A-F]{6}' pt [0-9]+)");
    const auto titles = found(ofEverybody(), "lw [0-9.]+ title '([^']*)'");
    ASSERT_EQ(styles.size(), 2 * everybody.size());
    ASSERT_EQ(styles.size(), titles.size());
    std::map<std::string, std::string> peerOfColour, peerOfShape;
    for (std::size_t i = 0; i < styles.size(); ++i) {
        EXPECT_EQ(peerOfColour.emplace(styles[i].substr(0, 16), titles[i]).first->second, titles[i]);
        EXPECT_EQ(peerOfShape.emplace(styles[i].substr(17), titles[i]).first->second, titles[i]);
    }
    EXPECT_EQ(peerOfColour.size(), everybody.size());
    EXPECT_EQ(peerOfShape.size(), everybody.size());
}

TEST(Plots, APeerWithoutAColourIsRefused) {
    EXPECT_THROW(plotScript("somewhere", {taking("somebody else", 64, 1)}), Failure);
}

TEST(Plots, TheLegendIsInTheOrderInWhichTheCurvesEnd) {
    EXPECT_THAT(legend({taking(linxIpcName, 64, 900), taking(linxIpcName, 256, 1000), taking(nngName, 64, 1),
                        taking(nngName, 256, 3000), taking(zeromqName, 64, 2), taking(zeromqName, 256, 2000)}),
                ElementsAre(nngName, zeromqName, linxIpcName));
}

TEST(Plots, ACurveThatEndsEarlierIsNamedBeforeTheFirstThatIsLowerThere) {
    EXPECT_THAT(legend({taking(messageQueueName, 64, 50), taking(linxIpcName, 64, 10), taking(linxIpcName, 256, 100),
                        taking(nngName, 64, 60), taking(nngName, 256, 200)}),
                ElementsAre(nngName, messageQueueName, linxIpcName));
}

TEST(Plots, TheAxesEndALittleBeyondWhatStandsOnThem) {
    const Records records = {taking(linxIpcName, 100, 2000), taking(linxIpcName, 1000, 40000)};
    EXPECT_EQ(found(records, "set xrange (.*)\n").front(), "[80:1250]");
    EXPECT_EQ(found(records, "set yrange (.*)\n").front(), "[1.6:50]");
}

TEST(Plots, TicksStandAtTheMeasuredPlacesAndAtPowersOfTen) {
    const Records records = {taking(linxIpcName, 64, 700), taking(linxIpcName, 60000, 15000),
                             taking(nngName, 256, 900)};
    EXPECT_EQ(found(records, "set xtics (.*)\n").front(), "(64, 256, 60000)");
    const std::string up = found(records, "set ytics (.*)\n").front();
    EXPECT_THAT(up, HasSubstr("\"1\" 1 0, \"\" 2 1, "));
    EXPECT_THAT(up, HasSubstr("\"10\" 10 0)"));
}

TEST(Plots, LargeNumbersAreToldInThousandsAndMillions) {
    Record record = {"stream", linxIpcName, Placement::apart, 64, 2, {}};
    record.spreads = {{"rate_per_s", spreadOf({5e3})}, {"cpu_ns", spreadOf({1})}};
    Record faster = record;
    faster.payload = 128;
    faster.spreads["rate_per_s"] = spreadOf({5e6});
    const std::string up = found({record, faster}, "set ytics (.*)\n").front();
    for (const char* tick : {"\"10 k\" 10000 0", "\"100 k\" 100000 0", "\"1 M\" 1e+06 0"})
        EXPECT_THAT(up, HasSubstr(tick));
}

TEST(Plots, WhatWasNotMeasuredIsNotDrawn) {
    EXPECT_EQ(plotScript("somewhere", {}), "");
}

}  // namespace bench
