#include "tools/payload.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>

#include "host/arena/layout.h"
#include "tools/failure.h"
#include "tools/file.h"
#include "tools/text.h"

namespace tools {
namespace {

constexpr size_t largest = linx::maxSignalBytes - sizeof(LinxSignal);

Bytes fromHex(const std::string& text) {
    std::string digits;
    std::copy_if(text.begin(), text.end(), std::back_inserter(digits), [](char c) { return c != ' ' && c != ':'; });
    Bytes bytes;
    for (size_t i = 0; i + 2 <= digits.size(); i += 2) {
        unsigned char byte = 0;
        const char* end = digits.data() + i + 2;
        if (std::from_chars(digits.data() + i, end, byte, 16).ptr != end) break;
        bytes.push_back(byte);
    }
    if (bytes.size() * 2 != digits.size()) {
        throw Failure(badUsage, "'" + printable(text) + "' is no payload in hexadecimal: two digits are a byte");
    }
    return bytes;
}

Bytes fromWords(const std::vector<uint32_t>& words) {
    Bytes bytes(words.size() * sizeof(uint32_t));
    if (!words.empty()) std::memcpy(bytes.data(), words.data(), bytes.size());
    return bytes;
}

Bytes fromStream(std::FILE* stream, const std::string& name) {
    Bytes bytes(largest + 1);  // one more tells that there is more
    bytes.resize(std::fread(bytes.data(), 1, bytes.size(), stream));
    if (std::ferror(stream) != 0) failToRead(name, errno);
    return bytes;
}

Bytes read(const PayloadOptions& options) {
    if (options.text) return Bytes(options.text->begin(), options.text->end());
    if (options.hex) return fromHex(*options.hex);
    if (options.file) return fromStream(openToRead(*options.file).get(), *options.file);
    if (options.standardInput) return fromStream(stdin, "standard input");
    return fromWords(options.words);
}

}  // namespace

Bytes payloadFrom(const PayloadOptions& options) {
    Bytes bytes = read(options);
    if (bytes.size() > largest) {
        throw Failure(badUsage, "a payload has at most " + std::to_string(largest) + " bytes");
    }
    return bytes;
}

}  // namespace tools
