#include "tests/mixed/support/role.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>

namespace {

constexpr char ownProgram[] = "/proc/self/exe";
constexpr char otherProgram[] = "LINX_TEST_OTHER_SIZE";  // the environment variable that says where it is

std::map<std::string, void (*)(Line&)>& roles() {
    static std::map<std::string, void (*)(Line&)> all;
    return all;
}

const char* programOf(Size size) {
    if (size == Size::own) return ownProgram;
    const char* other = std::getenv(otherProgram);
    return other == nullptr ? "" : other;
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

Role::Role(const char* name, void (*body)(Line&)) : name_(name) {
    if (!roles().emplace(name, body).second) std::abort();
}

Child::Body Role::in(Size size) const {
    return [this, size](Line& parent) {
        const std::string line = inherit(parent.descriptor());
        const std::string failures = inherit(Failures::ownDescriptor());
        execl(programOf(size), "mixed_test", "--role", name_, line.c_str(), failures.c_str(), nullptr);
        ADD_FAILURE() << "$" << otherProgram << " '" << programOf(size) << "': " << std::strerror(errno);
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

void continueInOtherSize(char** arguments) {
    char own[PATH_MAX] = "";
    if (readlink(ownProgram, own, sizeof own - 1) == -1) std::perror(ownProgram);
    const std::string other = programOf(Size::other);
    setenv(otherProgram, own, 1);
    execv(other.c_str(), arguments);
    std::perror(other.c_str());
    std::exit(2);
}
