#include "host/system/environment.h"

#include <charconv>
#include <cstdlib>
#include <cstring>
#include <string>

#include "host/system/log.h"

namespace linx {

uint32_t numberFromEnvironment(const char* name, uint32_t least, uint32_t most, uint32_t otherwise) {
    const char* text = std::getenv(name);
    if (text == nullptr || *text == '\0') return otherwise;
    const char* end = text + std::strlen(text);
    uint32_t number = 0;
    const auto parsed = std::from_chars(text, end, number, 10);
    if (parsed.ec == std::errc() && parsed.ptr == end && number >= least && number <= most) return number;
    log(LogBit::error, [&] {
        return std::string(name) + " is '" + text + "', which is no number from " + std::to_string(least) + " to " +
               std::to_string(most) + ": " + std::to_string(otherwise) + " is taken";
    });
    return otherwise;
}

}  // namespace linx
