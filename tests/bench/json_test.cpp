#include "bench/report/json.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>

#include "bench/harness/check.h"

namespace bench {

namespace {

/// A file that goes away with the test.
struct File {
    const std::string path = testing::TempDir() + "linx-bench-json." + std::to_string(getpid());
    ~File() { std::remove(path.c_str()); }
};

std::string text(const Record& record) {
    std::ostringstream text;
    text << record.scenario << '|' << record.peer << '|' << nameOf(record.placement) << '|' << record.payload << '|'
         << record.population;
    for (const auto& [name, spread] : record.spreads) {
        text << '|' << name << ' ' << spread.least << ' ' << spread.median << ' ' << spread.most;
        for (const double run : spread.runs) text << ' ' << run;
    }
    return text.str();
}

}  // namespace

TEST(Json, WhatWasWrittenIsReadAgain) {
    const File file;
    const Records written = {{"round-trip", "LinxIpc", Placement::apart, 64, 2, {{"median_ns", spreadOf({3, 1, 2})}}},
                             {"fan-in",
                              "iceoryx, polling",
                              Placement::both,
                              60000,
                              16,
                              {{"cpu_ns", spreadOf({0.5})}, {"rate_per_s", spreadOf({7})}}},
                             {"ring", "bare memory", Placement::one, 0, 37, {{"hop_ns", spreadOf({4, 6})}}}};
    writeJson(file.path, {}, written);
    const Records read = readJson(file.path);
    ASSERT_EQ(read.size(), written.size());
    for (std::size_t i = 0; i < written.size(); ++i) EXPECT_EQ(text(read[i]), text(written[i]));
}

TEST(Json, AnythingElseIsRefused) {
    const File file;
    for (const char* content :
         {"", "[]", "{\"records\": 3}", "{\"records\": [{\"scenario\": \"ring\"}]}",
          "{\"records\": [{\"scenario\": \"a\", \"peer\": \"b\", \"cores\": \"nine\", \"payload\": 1, \"count\": 1,"
          "\"figures\": {}}]}"}) {
        std::ofstream(file.path) << content;
        EXPECT_THROW(readJson(file.path), Failure) << content;
    }
}

}  // namespace bench
