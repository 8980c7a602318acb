#include "tests/kit/role.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <map>

#include "tests/kit/side.h"

namespace {

std::map<std::string, void (*)(Line&)>& roles() {
    static std::map<std::string, void (*)(Line&)> all;
    return all;
}

/// The program of the other word size; null in a run whose processes are all of one.
const char* otherProgram() {
    return std::getenv("LINX_TEST_OTHER_SIZE");
}

/// Has the next program of this process get the descriptor. Its number, for the command line.
std::string inherit(int descriptor) {
    fcntl(descriptor, F_SETFD, 0);
    return std::to_string(descriptor);
}

int keepToOneself(int descriptor) {
    fcntl(descriptor, F_SETFD, FD_CLOEXEC);
    return descriptor;
}

}  // namespace

std::optional<Size> sizeWithPointersOf(size_t bytes) {
    if (bytes == sizeof(void*)) return Size::own;
    if (otherProgram() != nullptr) return Size::other;
    return std::nullopt;
}

Role::Role(const char* name, void (*body)(Line&)) : name_(name), body_(body) {
    if (!roles().emplace(name, body).second) std::abort();
}

Child::Body Role::in(Size size) const {
    if (size == Size::own) return body_;
    return [this](Line& parent) {
        OtherSide::enter();
        if (otherProgram() == nullptr) return body_(parent);
        const std::string line = inherit(parent.descriptor());
        const std::string failures = inherit(Failures::ownDescriptor());
        execl(otherProgram(), otherProgram(), "--role", name_, line.c_str(), failures.c_str(), nullptr);
        ADD_FAILURE() << otherProgram() << ": " << std::strerror(errno);
    };
}

int playRole(const std::string& name, int lineDescriptor, int failuresDescriptor) {
    const auto role = roles().find(name);
    if (role == roles().end()) return 2;
    const Failures failures(keepToOneself(failuresDescriptor));
    failures.note();
    {
        Line parent(keepToOneself(lineDescriptor));
        role->second(parent);
    }
    return testing::Test::HasFailure() ? 1 : 0;
}
