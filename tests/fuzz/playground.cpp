#include "tests/fuzz/playground.h"

#include <unistd.h>

#include <cstdlib>

#include "tests/fuzz/claim.h"
#include "tests/kit/domain.h"

namespace fuzz {
namespace {

int firstFreeDescriptor() {
    const int descriptor = dup(0);
    close(descriptor);
    return descriptor;
}

std::string domainOfEnvironment() {
    const char* path = std::getenv("LINX_DOMAIN");
    claim(path != nullptr && *path == '/', "LINX_DOMAIN names a directory to play in");
    return path;
}

void empty(const std::string& path) {
    for (const std::string& name : linxtest::namesIn(path)) unlink((path + "/" + name).c_str());
}

}  // namespace

Playground::Playground() : path_(domainOfEnvironment()), firstFreeDescriptor_(firstFreeDescriptor()) {
    setenv("LINX_ARENA_MB", "4", 0);
    empty(path_);
}

Playground::~Playground() {
    empty(path_);
    claim(firstFreeDescriptor() == firstFreeDescriptor_, "no descriptor stays open");
}

}  // namespace fuzz
