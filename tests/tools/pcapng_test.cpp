// Captures are written as the format wants them, and read whatever machine has written them or whatever has become of
// them since.

#include "tools/pcapng.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <memory>
#include <random>

#include "tests/kit/byte_order.h"
#include "tests/tools/in_memory.h"
#include "tools/captured.h"
#include "tools/failure.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using tools::Bytes;
using tools::Captured;
using tools::Packet;

/// A capture as a machine of either byte order writes it, block by block.
class Blocks {
public:
    enum class Order { big, little };

    explicit Blocks(Order order) : order_(order) {}

    Blocks& add(uint32_t type, const std::string& body) {
        const auto length = static_cast<uint32_t>(body.size() + 12);
        text_ += word(type) + word(length) + body + word(length);
        return *this;
    }
    Blocks& section() { return add(0x0a0d0d0a, word(0x1a2b3c4d) + half(1) + half(0) + std::string(8, '\xff')); }
    Blocks& interface(uint16_t linkType = 147, const std::string& options = "") {
        return add(1, half(linkType) + half(0) + word(0) + options);
    }
    Blocks& packet(uint64_t time, const std::string& bytes, uint32_t interface = 0) {
        const auto size = static_cast<uint32_t>(bytes.size());
        return add(6, word(interface) + word(static_cast<uint32_t>(time >> 32)) + word(static_cast<uint32_t>(time)) +
                          word(size) + word(size) + padded(bytes));
    }

    /// An option with a single byte; those of an interface end with it.
    std::string option(uint16_t code, char value) const { return half(code) + half(1) + padded({value}) + word(0); }
    std::string word(uint32_t value) const { return number(value, 4); }
    std::string half(uint16_t value) const { return number(value, 2); }
    static std::string padded(std::string bytes) {
        bytes.resize((bytes.size() + 3) / 4 * 4);
        return bytes;
    }

    const std::string& text() const { return text_; }
    Blocks& append(const Blocks& other) {
        text_ += other.text_;
        return *this;
    }

private:
    std::string number(uint32_t value, unsigned size) const {
        std::string bytes;
        for (unsigned i = 0; i < size; ++i) {
            bytes += static_cast<char>(value >> 8 * (order_ == Order::big ? size - 1 - i : i));
        }
        return bytes;
    }

    const Order order_;
    std::string text_;
};

class InBothOrders : public testing::TestWithParam<Blocks::Order> {
protected:
    Blocks blocks{GetParam()};
};
INSTANTIATE_TEST_SUITE_P(Pcapng, InBothOrders, testing::Values(Blocks::Order::big, Blocks::Order::little),
                         [](const auto& order) { return order.param == Blocks::Order::big ? "Big" : "Little"; });

struct Read {
    std::vector<Packet> packets;
    std::string failure;  ///< empty where it was read to its end
};

Read readAll(const std::string& text) {
    Read result;
    const tools::File file = fileOf(text);
    tools::PcapngReader reader(file.get(), "capture");
    try {
        while (std::optional<Packet> packet = reader.next()) result.packets.push_back(std::move(*packet));
    } catch (const tools::Failure& failure) {
        EXPECT_EQ(failure.status(), tools::refused);
        result.failure = failure.what();
    }
    return result;
}

std::string textOf(const Packet& packet) {
    return std::string(packet.bytes.begin(), packet.bytes.end());
}

std::vector<std::string> textsOf(const Read& read) {
    EXPECT_EQ(read.failure, "");
    std::vector<std::string> texts;
    for (const Packet& packet : read.packets) texts.push_back(textOf(packet));
    return texts;
}

const Packet hello = {0x0123456789abcdef, 500, {'h', 'e', 'l', 'l', 'o'}};

TEST(Pcapng, WhatIsWrittenIsReadAgain) {
    const std::string text = writtenBy([](std::FILE* file) {
        tools::PcapngWriter writer(file, "domain", 96);
        writer.write(hello);
        writer.write({1, 0, {}});
        writer.finish({2, 3}, 5);
    });
    const Read read = readAll(text);
    EXPECT_THAT(textsOf(read), ElementsAre("hello", ""));
    EXPECT_EQ(read.packets[0].nanoseconds, hello.nanoseconds);
    EXPECT_EQ(read.packets[0].originalSize, 500u);
    EXPECT_EQ(read.packets[1].nanoseconds, 1u);
}

TEST(Pcapng, EveryBlockIsWrittenAsTheFormatWantsItInThisMachinesOrder) {
    const auto blocksOf = [](std::FILE* file) {
        tools::PcapngWriter writer(file, "name", 96);
        writer.write(hello);
        writer.finish({2, 3}, 5);
    };
    const std::string text = writtenBy(blocksOf);
    Blocks expected(linxtest::written("big", "little") == "big" ? Blocks::Order::big : Blocks::Order::little);
    const auto word = [&](uint32_t value) { return expected.word(value); };
    const auto half = [&](uint16_t value) { return expected.half(value); };
    expected.add(1, half(147) + half(0) + word(96) + half(2) + half(4) + "name" + expected.option(9, 9));
    expected.add(6, word(0) + word(0x01234567) + word(0x89abcdef) + word(5) + word(500) + Blocks::padded("hello"));
    const auto both = [&](uint32_t value) {
        const bool isBig = linxtest::written("big", "little") == "big";
        return isBig ? word(0) + word(value) : word(value) + word(0);
    };
    expected.add(5,
                 word(0) + word(0) + word(5) + half(4) + half(8) + both(2) + half(5) + half(8) + both(3) + word(0));
    ASSERT_GT(text.size(), expected.text().size());
    const std::string section = text.substr(0, text.size() - expected.text().size());
    EXPECT_EQ(linxtest::bytesOf(text.substr(section.size())), linxtest::bytesOf(expected.text()));
    const auto length = static_cast<uint32_t>(section.size());
    EXPECT_EQ(linxtest::bytesOf(section.substr(0, 24)),
              linxtest::bytesOf(word(0x0a0d0d0a) + word(length) + word(0x1a2b3c4d) + half(1) + half(0) +
                                std::string(8, '\xff')));
    EXPECT_THAT(section, HasSubstr("linx "));
    EXPECT_EQ(section.substr(section.size() - 4), word(length));
}

TEST_P(InBothOrders, PacketsAreRead) {
    blocks.section().interface(147, blocks.option(9, 9)).packet(0x123456789, "first").packet(7, "second!!");
    const Read read = readAll(blocks.text());
    EXPECT_THAT(textsOf(read), ElementsAre("first", "second!!"));
    EXPECT_EQ(read.packets[0].nanoseconds, 0x123456789u);
    EXPECT_EQ(read.packets[0].originalSize, 5u);
}

TEST_P(InBothOrders, TimesAreInTheUnitOfTheirInterface) {
    blocks.section().interface().interface(147, blocks.option(9, 3)).interface(147, blocks.option(9, 0));
    blocks.packet(1, "").packet(1, "", 1).packet(1, "", 2);
    const Read read = readAll(blocks.text());
    ASSERT_EQ(textsOf(read).size(), 3u);
    EXPECT_EQ(read.packets[0].nanoseconds, 1000u) << "microseconds where nothing is said";
    EXPECT_EQ(read.packets[1].nanoseconds, 1000000u);
    EXPECT_EQ(read.packets[2].nanoseconds, 1000000000u);
}

TEST_P(InBothOrders, AUnitThatIsNotUnderstoodIsRefused) {
    for (const char unit : {'\x0a', '\x80', '\xff'}) {
        Blocks file(GetParam());
        file.section().interface(147, file.option(9, unit)).packet(1, "");
        EXPECT_THAT(readAll(file.text()).failure, HasSubstr("unit"));
    }
}

TEST_P(InBothOrders, WhatIsNoneOfOursIsLeftOut) {
    blocks.section().interface(1).interface().add(0xbad, "anything").packet(1, "ethernet", 0).packet(1, "ours", 1);
    EXPECT_THAT(textsOf(readAll(blocks.text())), ElementsAre("ours"));
}

TEST_P(InBothOrders, SectionsOfAnotherOrderMayFollow) {
    Blocks other(GetParam() == Blocks::Order::big ? Blocks::Order::little : Blocks::Order::big);
    other.section().interface().packet(2, "theirs");
    blocks.section().interface().packet(1, "ours").append(other).section().interface().packet(3, "again");
    EXPECT_THAT(textsOf(readAll(blocks.text())), ElementsAre("ours", "theirs", "again"));
}

TEST_P(InBothOrders, WhatCannotBeIsToldWithItsPlace) {
    const std::string good = blocks.section().interface().packet(1, "good").text();
    const auto failureOf = [&](const std::string& more) {
        const Read read = readAll(good + more);
        EXPECT_EQ(read.packets.size(), 1u) << "what came before counts";
        EXPECT_THAT(read.failure,
                    testing::StartsWith("capture cannot be read on from byte " + std::to_string(good.size()) + ": "));
        return read.failure;
    };
    const auto blockOf = [&](uint32_t type, const std::string& body) {
        return Blocks(GetParam()).add(type, body).text();
    };
    const auto word = [&](uint32_t value) { return blocks.word(value); };
    EXPECT_THAT(failureOf(word(7)), HasSubstr("ends in a block"));
    EXPECT_THAT(failureOf(word(7) + word(16) + "body"), HasSubstr("ends in a block"));
    for (const uint32_t length : {0u, 8u, 13u, 0xfffffffcu}) {
        EXPECT_THAT(failureOf(word(7) + word(length) + std::string(20, '\0')), HasSubstr("impossible length"));
    }
    EXPECT_THAT(failureOf(word(7) + word(16) + "body" + word(20)), HasSubstr("two lengths"));
    EXPECT_THAT(failureOf(blockOf(0x0a0d0d0a, "what")), HasSubstr("no byte order"));
    EXPECT_THAT(failureOf(blockOf(1, "what")), HasSubstr("too short"));
    EXPECT_THAT(failureOf(blockOf(6, "what")), HasSubstr("too short"));
    EXPECT_THAT(failureOf(Blocks(GetParam()).packet(1, "data", 1).text()), HasSubstr("no interface"));
    EXPECT_THAT(failureOf(blockOf(6, word(0) + word(0) + word(0) + word(5) + word(5) + "four")),
                HasSubstr("longer than its block"));
    EXPECT_THAT(failureOf(Blocks(GetParam()).interface(147, blocks.half(9) + blocks.half(40) + "four").text()),
                HasSubstr("longer than its block"));
}

TEST(Pcapng, WhatIsNoCaptureIsToldToBeNone) {
    for (const std::string text : {"", "PK", "something else altogether"}) {
        const Read read = readAll(text);
        EXPECT_TRUE(read.packets.empty());
        EXPECT_THAT(read.failure, testing::AnyOf(HasSubstr("no capture"), HasSubstr("ends in a block")));
    }
}

TEST_P(InBothOrders, ACaptureThatWasCutShortGivesWhatIsWhole) {
    blocks.section().interface(147, blocks.option(9, 9));
    std::vector<size_t> ends;
    for (const char* text : {"one", "two", "three"}) ends.push_back(blocks.packet(1, text).text().size());
    const size_t start = ends[0] - 12 - 20 - 4;
    for (size_t length = 1; length < blocks.text().size(); ++length) {
        const Read read = readAll(blocks.text().substr(0, length));
        const auto whole = std::count_if(ends.begin(), ends.end(), [&](size_t end) { return end <= length; });
        EXPECT_EQ(read.packets.size(), static_cast<size_t>(whole)) << length;
        const bool isBetweenBlocks =
            length == 28 || length == start || (whole != 0 && ends[static_cast<size_t>(whole) - 1] == length);
        EXPECT_EQ(read.failure.empty(), isBetweenBlocks) << length << read.failure;
    }
}

Captured example() {
    Captured signal;
    signal.nanoseconds = 1000;
    signal.from = linx::Spid{0x2001};
    signal.to = linx::Spid{0x2002};
    signal.fromName = "client";
    signal.toName = "server";
    signal.number = 2000;
    signal.size = 10;
    signal.data = {1, 2, 3, 4, 5, 6};
    return signal;
}

TEST(CapturedSignal, IsAPacketThatReadsTheSameEverywhere) {
    const Packet packet = toPacket(example());
    EXPECT_EQ(linxtest::bytesOf(packet.bytes.data(), packet.bytes.size()),
              "01 01 00 24 00 00 07 D0 00 00 00 0A 00 00 20 01 00 00 20 02 06 06 00 00 "
              "63 6C 69 65 6E 74 73 65 72 76 65 72 01 02 03 04 05 06");
    EXPECT_EQ(packet.originalSize, packet.bytes.size());
    EXPECT_EQ(packet.nanoseconds, 1000u);
    Captured big = example();
    big.isLittleEndian = false;
    EXPECT_EQ(toPacket(big).bytes[1], 0);
}

void expectSame(const std::optional<Captured>& actual, const Captured& expected) {
    ASSERT_TRUE(actual);
    EXPECT_EQ(actual->nanoseconds, expected.nanoseconds);
    EXPECT_EQ(actual->from, expected.from);
    EXPECT_EQ(actual->to, expected.to);
    EXPECT_EQ(actual->fromName, expected.fromName);
    EXPECT_EQ(actual->toName, expected.toName);
    EXPECT_EQ(actual->number, expected.number);
    EXPECT_EQ(actual->size, expected.size);
    EXPECT_EQ(actual->isLittleEndian, expected.isLittleEndian);
    EXPECT_EQ(actual->data, expected.data);
}

TEST(CapturedSignal, ComesBackFromItsPacket) {
    Captured signal = example();
    expectSame(fromPacket(toPacket(signal)), signal);
    EXPECT_FALSE(signal.isCut());
    signal.isLittleEndian = false;
    signal.size = 1u << 20;
    signal.fromName = std::string(255, 'x');
    signal.toName = std::string(255, 'y');
    const Packet packet = toPacket(signal);
    expectSame(fromPacket(packet), signal);
    EXPECT_TRUE(signal.isCut());
    EXPECT_EQ(packet.originalSize, 24u + 510 + (1u << 20) - 4);
    EXPECT_EQ(packet.bytes.size(), tools::packetBytes(6));
    signal.size = 4;
    signal.data.clear();
    expectSame(fromPacket(toPacket(signal)), signal);
    EXPECT_FALSE(signal.isCut());
}

TEST(CapturedSignal, IsReadWithMoreBeforeThePayloadThanThisProgramKnows) {
    Packet packet = toPacket(example());
    packet.bytes.insert(packet.bytes.begin() + 0x24, {9, 9});
    packet.bytes[3] = 0x26;
    expectSame(fromPacket(packet), example());
}

TEST(CapturedSignal, IsNoneWhereItsPacketCannotBe) {
    const Packet good = toPacket(example());
    for (size_t length = 0; length < 0x24; ++length) {
        Packet cut = good;
        cut.bytes.resize(length);
        EXPECT_FALSE(fromPacket(cut)) << length;
    }
    const auto with = [&](size_t at, unsigned char value) {
        Packet changed = good;
        changed.bytes[at] = value;
        return fromPacket(changed);
    };
    EXPECT_FALSE(with(0, 2)) << "another version";
    EXPECT_FALSE(with(2, 1)) << "more before the payload than there is";
    EXPECT_FALSE(with(3, 0x23)) << "less before the payload than the names take";
    EXPECT_FALSE(with(8, 1)) << "larger than a signal can be";
    EXPECT_FALSE(with(11, 3)) << "smaller than a number";
    EXPECT_FALSE(with(11, 9)) << "smaller than what is there of it";
    EXPECT_FALSE(with(20, 0)) << "nobody's";
    EXPECT_FALSE(with(24, 0)) << "no name";
}

TEST(Pcapng, GarbledCapturesAreReadWithinTheirBounds) {
    std::mt19937 random(1);
    const auto draw = [&](size_t bound) { return static_cast<size_t>(random() % bound); };
    const std::string good = writtenBy([](std::FILE* file) {
        tools::PcapngWriter writer(file, "domain", 96);
        for (int i = 0; i < 8; ++i) writer.write(toPacket(example()));
        writer.finish({8, 0}, 5);
    });
    size_t signals = 0;
    size_t failures = 0;
    for (int round = 0; round < 5000; ++round) {
        std::string text = good;
        for (size_t changes = 1 + draw(4); changes != 0; --changes) {
            text[draw(text.size())] = static_cast<char>(draw(2) == 0 ? draw(256) : draw(8) * 0x24);
        }
        if (draw(4) == 0) text.resize(draw(text.size()));
        const Read read = readAll(text);
        if (!read.failure.empty()) ++failures;
        for (const Packet& packet : read.packets) {
            const std::optional<Captured> signal = fromPacket(packet);
            if (!signal) continue;
            ++signals;
            ASSERT_LE(signal->data.size(), signal->payloadSize());
            ASSERT_LE(signal->data.size(), text.size());
        }
    }
    EXPECT_GT(signals, 0u);
    EXPECT_GT(failures, 0u);
}

}  // namespace
