#include "link/session/messages.h"

#include <gmock/gmock.h>

using namespace linx::link;
using testing::ElementsAre;
using testing::ElementsAreArray;

namespace {

template <class Message>
Bytes written(const Message& message) {
    Bytes bytes;
    write(Writer(bytes), message);
    return bytes;
}
Reader readerOf(const Bytes& bytes) {
    return Reader(bytes.data(), bytes.size());
}

Hello exampleHello() {
    Hello hello;
    hello.lowestVersion = 1;
    hello.highestVersion = 3;
    hello.features = 0x01020304;
    for (size_t i = 0; i < hello.node.size(); ++i) hello.node[i] = static_cast<uint8_t>(0xA0 + i);
    hello.nonce = 0x1122334455667788;
    hello.byteOrder = ByteOrder::bigEndian;
    hello.wordBytes = 4;
    hello.largestSignal = 0x00100000;
    hello.window = 0x00080000;
    hello.tolerance = 1500;
    return hello;
}

const Bytes helloBytes = {'L',  'N',  'K',  '1',  0,    1,    0,    3,    1,    2,    3,    4,    0xA0,
                          0xA1, 0xA2, 0xA3, 0xA4, 0xA5, 0xA6, 0xA7, 0xA8, 0xA9, 0xAA, 0xAB, 0xAC, 0xAD,
                          0xAE, 0xAF, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 1,    4,    0,
                          0,    0,    0x10, 0,    0,    0,    8,    0,    0,    0,    0,    0x05, 0xDC};

}  // namespace

TEST(MessagesTest, AGreetingHasTheseBytes) {
    EXPECT_THAT(written(exampleHello()), ElementsAreArray(helloBytes));
}

TEST(MessagesTest, AGreetingIsReadAsItWasWritten) {
    const auto hello = readHello(readerOf(helloBytes));
    ASSERT_TRUE(hello);
    EXPECT_EQ(written(*hello), helloBytes);
    EXPECT_EQ(hello->byteOrder, ByteOrder::bigEndian);
    EXPECT_EQ(hello->wordBytes, 4);
    EXPECT_EQ(hello->nonce, 0x1122334455667788u);
}

TEST(MessagesTest, WhatALaterVersionAppendsToAGreetingIsNotRead) {
    Bytes longer = helloBytes;
    longer.insert(longer.end(), 100, 0xEE);
    EXPECT_TRUE(readHello(readerOf(longer)));
}

TEST(MessagesTest, NoPartOfAGreetingIsTakenForOne) {
    for (size_t size = 0; size < helloBytes.size(); ++size) {
        EXPECT_FALSE(readHello(Reader(helloBytes.data(), size))) << size;
    }
}

TEST(MessagesTest, AGreetingWithNumbersOutOfBoundsIsRefused) {
    const auto isRefused = [](auto change) {
        Hello hello = exampleHello();
        change(hello);
        const Bytes bytes = written(hello);
        return !readHello(readerOf(bytes));
    };
    EXPECT_TRUE(isRefused([](Hello& hello) { hello.lowestVersion = 4; }));
    EXPECT_TRUE(isRefused([](Hello& hello) { hello.byteOrder = static_cast<ByteOrder>(3); }));
    EXPECT_TRUE(isRefused([](Hello& hello) { hello.wordBytes = 5; }));
    EXPECT_TRUE(isRefused([](Hello& hello) { hello.largestSignal = mostSignal + 1; }));
    EXPECT_TRUE(isRefused([](Hello& hello) { hello.largestSignal = 3; }));
    EXPECT_TRUE(isRefused([](Hello& hello) { hello.window = leastWindow - 1; }));
    EXPECT_TRUE(isRefused([](Hello& hello) { hello.window = mostWindow + 1; }));
    EXPECT_TRUE(isRefused([](Hello& hello) { hello.tolerance = leastTolerance - 1; }));
    EXPECT_TRUE(isRefused([](Hello& hello) { hello.tolerance = mostTolerance + 1; }));
    EXPECT_FALSE(isRefused([](Hello&) {}));
}

TEST(MessagesTest, AHuntHasTheNodesThatItPassedAndTheName) {
    Seek seek = {"X", {NodeId()}};
    seek.passed[0].fill(9);
    const Bytes bytes = written(seek);
    EXPECT_THAT(bytes, ElementsAre(1, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 1, 'X'));
    const auto read = readSeek(readerOf(bytes));
    ASSERT_TRUE(read);
    EXPECT_EQ(read->name, "X");
    EXPECT_EQ(read->passed, seek.passed);
}

TEST(MessagesTest, AHuntThatPassedTooManyNodesIsRefused) {
    Seek seek = {"X", std::vector<NodeId>(mostPassed)};
    const Bytes allowed = written(seek);
    EXPECT_TRUE(readSeek(readerOf(allowed)));
    seek.passed.resize(mostPassed + 1);
    const Bytes refused = written(seek);
    EXPECT_FALSE(readSeek(readerOf(refused)));
}

TEST(MessagesTest, NamesHaveOneTo255BytesAndNoNul) {
    const auto isRead = [](const std::string& name) {
        const Bytes bytes = written(Announcement{name, mostCredit});
        return readAnnouncement(readerOf(bytes)).has_value();
    };
    EXPECT_TRUE(isRead("a"));
    EXPECT_TRUE(isRead(std::string(255, 'a')));
    EXPECT_FALSE(isRead(""));
    EXPECT_FALSE(isRead(std::string("a\0b", 3)));
    EXPECT_FALSE(isName(std::string(256, 'a')));
}

TEST(MessagesTest, AnAnnouncementHasItsCreditAndName) {
    EXPECT_THAT(written(Announcement{"ab", 0x00040000}), ElementsAre(0, 4, 0, 0, 2, 'a', 'b'));
}

TEST(MessagesTest, AnAnnouncementWithACreditOutOfBoundsIsRefused) {
    for (const uint32_t credit : {0u, leastCredit - 1, mostCredit + 1, UINT32_MAX}) {
        const Bytes bytes = written(Announcement{"a", credit});
        EXPECT_FALSE(readAnnouncement(readerOf(bytes))) << credit;
    }
}

TEST(MessagesTest, ARefusalHasItsReasonAndName) {
    const Bytes bytes = written(Refusal{"ab", Refused::loop});
    EXPECT_THAT(bytes, ElementsAre(2, 2, 'a', 'b'));
    EXPECT_TRUE(readRefusal(readerOf(bytes)));
    for (const int reason : {0, 6, 255}) {
        const Bytes unknown = {static_cast<uint8_t>(reason), 1, 'a'};
        EXPECT_FALSE(readRefusal(readerOf(unknown))) << reason;
    }
}

TEST(MessagesTest, ASignOfLifeHasThreeTimes) {
    const Bytes bytes = written(Ping{1, 2, 3});
    EXPECT_THAT(bytes, ElementsAre(0, 0, 0, 1, 0, 0, 0, 2, 0, 0, 0, 3));
    EXPECT_TRUE(readPing(readerOf(bytes)));
}

TEST(MessagesTest, TheHeadOfASignalHasSourceNumberAndSize) {
    const Bytes bytes = written(SignalHead{0x01020304, 1281, 0x0A0B});
    EXPECT_THAT(bytes, ElementsAre(1, 2, 3, 4, 0, 0, 5, 1, 0, 0, 0x0A, 0x0B));
}

TEST(MessagesTest, ASignalLargerThanAnyIsRefusedByItsHead) {
    for (const uint32_t size : {mostSignal - 3, UINT32_MAX}) {
        const Bytes bytes = written(SignalHead{1, 2, size});
        Reader reader = readerOf(bytes);
        EXPECT_FALSE(readSignalHead(reader)) << size;
    }
}

TEST(MessagesTest, BytesThatAreTooManyAreRefusedEverywhereElse) {
    const auto withOneMore = [](Bytes bytes) {
        bytes.push_back(0);
        return bytes;
    };
    const Bytes seek = withOneMore(written(Seek{"a", {}}));
    const Bytes refusal = withOneMore(written(Refusal{"a", Refused::loop}));
    const Bytes announcement = withOneMore(written(Announcement{"a", mostCredit}));
    const Bytes ping = withOneMore(written(Ping{}));
    EXPECT_FALSE(readSeek(readerOf(seek)));
    EXPECT_FALSE(readRefusal(readerOf(refusal)));
    EXPECT_FALSE(readAnnouncement(readerOf(announcement)));
    EXPECT_FALSE(readPing(readerOf(ping)));
}
