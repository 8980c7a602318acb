#include "tools/file.h"

#include <cerrno>
#include <cstring>

#include "tools/failure.h"
#include "tools/text.h"

namespace tools {

File openToRead(const std::string& name) {
    File file(std::fopen(name.c_str(), "re"));
    if (file == nullptr) failToRead(name, errno);
    return file;
}

File openToWrite(const std::string& name) {
    File file(std::fopen(name.c_str(), "we"));
    if (file == nullptr) failToWrite(name, errno);
    return file;
}

void failToRead(const std::string& name, int reason) {
    throw Failure(refused, printable(name) + " cannot be read: " + std::strerror(reason));
}

void failToWrite(const std::string& name, int reason) {
    throw Failure(refused, printable(name) + " cannot be written: " + std::strerror(reason));
}

}  // namespace tools
