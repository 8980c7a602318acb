#ifndef LINXIPC_TESTS_MIXED_SUPPORT_ROLE_H
#define LINXIPC_TESTS_MIXED_SUPPORT_ROLE_H

#include <ostream>
#include <string>

#include "tests/processes/support/child.h"

/// The test program is built for both word sizes. A test runs in one of them, `own`, and has roles played in either.
enum class Size { own, other };

inline std::ostream& operator<<(std::ostream& out, Size size) {
    return out << (size == Size::own ? "own" : "other");
}

/// What a child of a test does, known by its name to the programs of both sizes. For namespace scope only.
class Role {
public:
    /// `body` knows of the test what that tells it along the line, and no more.
    Role(const char* name, void (*body)(Line& parent));
    Role(const Role&) = delete;
    Role& operator=(const Role&) = delete;

    /// For a child that plays the role in the program of that size.
    Child::Body in(Size size) const;

private:
    const char* name_;
};

/// Plays a role in a program that was executed for it. The exit status.
int playRole(const std::string& name, int lineDescriptor, int failuresDescriptor);

/// Goes on as the program of the other size with these arguments. Ends the process when it cannot.
[[noreturn]] void continueInOtherSize(char** arguments);

#endif
