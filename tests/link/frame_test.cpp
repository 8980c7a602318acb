#include "link/session/frame.h"

#include <gmock/gmock.h>

using namespace linx::link;
using testing::ElementsAre;

namespace {

Bytes exampleFrame() {
    Bytes frame = openFrame();
    Writer(frame).u16(0xABCD);
    Header header;
    header.tag = 0x0102030405060708;
    header.sequence = 0x1112131415161718;
    header.channel = 0x21222324;
    header.type = Type::signals;
    header.flags = 0x5A;
    closeFrame(frame, header);
    return frame;
}

}  // namespace

TEST(FrameTest, TheHeaderHasItsHighestBytesFirst) {
    EXPECT_THAT(exampleFrame(), ElementsAre(0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08,  // tag
                                            0x11, 0x12, 0x13, 0x14, 0x15, 0x16, 0x17, 0x18,  // sequence
                                            0x21, 0x22, 0x23, 0x24,                          // channel
                                            0x00, 0x02,                                      // size
                                            20,                                              // type
                                            0x5A,                                            // flags
                                            0xAB, 0xCD));
}

TEST(FrameTest, WhatWasWrittenIsRead) {
    const Bytes bytes = exampleFrame();
    const auto frame = readFrame(bytes.data(), bytes.size());
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->header.tag, 0x0102030405060708u);
    EXPECT_EQ(frame->header.sequence, 0x1112131415161718u);
    EXPECT_EQ(frame->header.channel, 0x21222324u);
    EXPECT_EQ(frame->header.type, Type::signals);
    EXPECT_EQ(frame->header.flags, 0x5A);
    Reader body = frame->body();
    EXPECT_EQ(body.u16(), 0xABCD);
    EXPECT_TRUE(body.isAtEnd());
}

TEST(FrameTest, NoPartOfAFrameIsTakenForOne) {
    const Bytes bytes = exampleFrame();
    for (size_t size = 0; size < bytes.size(); ++size) EXPECT_FALSE(readFrame(bytes.data(), size)) << size;
}

TEST(FrameTest, ASizeThatIsNotThatOfTheFrameIsRefused) {
    Bytes bytes = exampleFrame();
    for (const int size : {0, 1, 3, 255}) {
        bytes[21] = static_cast<uint8_t>(size);
        EXPECT_FALSE(readFrame(bytes.data(), bytes.size())) << size;
    }
}

TEST(FrameTest, TypesThatAreNotKnownAreRefused) {
    Bytes bytes = exampleFrame();
    for (const int type : {0, 7, 15, 22, 255}) {
        bytes[22] = static_cast<uint8_t>(type);
        EXPECT_FALSE(readFrame(bytes.data(), bytes.size())) << type;
    }
}

TEST(FrameTest, MoreThanAFrameIsRefused) {
    Bytes frame = openFrame();
    frame.resize(frameBytes + 1);
    Header header;
    closeFrame(frame, header);
    EXPECT_FALSE(readFrame(frame.data(), frame.size()));
}

TEST(FrameTest, AReaderGoesNoFurtherThanItsBytes) {
    const Bytes bytes = {1, 2, 3};
    Reader reader(bytes.data(), bytes.size());
    EXPECT_EQ(reader.u16(), 0x0102);
    EXPECT_EQ(reader.u16(), 0);
    EXPECT_TRUE(reader.failed());
    EXPECT_EQ(reader.u8(), 0) << "nothing is read after what was not there";
    EXPECT_EQ(reader.left(), 0u);
    EXPECT_FALSE(reader.isAtEnd());
}
