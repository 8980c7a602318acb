#include "link/session/frame.h"

#include <algorithm>

namespace linx::link {
namespace {

bool isKnown(Type type) {
    return (type >= Type::hello && type <= Type::credit) || (type >= Type::seek && type <= Type::fragment);
}

}  // namespace

std::optional<FrameView> readFrame(const uint8_t* data, size_t size) {
    if (size < headerBytes || size > frameBytes) return std::nullopt;
    Reader reader(data, size);
    FrameView frame;
    frame.header.tag = reader.u64();
    frame.header.sequence = reader.u64();
    frame.header.channel = reader.u32();
    frame.header.size = reader.u16();
    frame.header.type = static_cast<Type>(reader.u8());
    frame.header.flags = reader.u8();
    frame.bytes = data + headerBytes;
    if (frame.header.size != size - headerBytes || !isKnown(frame.header.type)) return std::nullopt;
    return frame;
}

Bytes openFrame() {
    return Bytes(headerBytes);
}

void closeFrame(Bytes& frame, const Header& header) {
    Bytes front;
    front.reserve(headerBytes);
    Writer writer(front);
    writer.u64(header.tag);
    writer.u64(header.sequence);
    writer.u32(header.channel);
    writer.u16(static_cast<uint16_t>(frame.size() - headerBytes));
    writer.u8(static_cast<uint8_t>(header.type));
    writer.u8(header.flags);
    std::copy(front.begin(), front.end(), frame.begin());
}

}  // namespace linx::link
