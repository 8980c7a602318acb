#include "log/LogLine.h"

#include <cstring>

std::ostream& operator<<(std::ostream& stream, SystemError error) {
    const char* text = std::strerror(error.number);
    if (text == nullptr) {
        stream.setstate(std::ios_base::badbit);
        return stream;
    }
    return stream << text;
}

const char* writeUpToValue(std::ostream& stream, const char* text) {
    const char* value = std::strstr(text, "{}");
    stream.write(text, value - text);
    return value + 2;
}
