#ifndef LINXIPC_TESTS_KIT_ROLE_H
#define LINXIPC_TESTS_KIT_ROLE_H

#include <cstddef>
#include <optional>
#include <string>

#include "tests/kit/child.h"

/// The word size of a process: that of the program that runs the test, or the other one.
enum class Size { own, other };

/// The size whose pointers have that many bytes; none when no process of this run has such.
std::optional<Size> sizeWithPointersOf(size_t bytes);

/// What a child of a test does, known by its name to the programs of both word sizes. A run that is told of the
/// program of the other size has it play the roles; where there is none, all processes are of one size. For namespace
/// scope only.
class Role {
public:
    /// `body` knows of the test what that tells it along the line, and no more.
    Role(const char* name, void (*body)(Line& parent));
    Role(const Role&) = delete;
    Role& operator=(const Role&) = delete;

    /// For a child that plays the role in a process of that size.
    Child::Body in(Size size) const;
    operator Child::Body() const { return in(Size::other); }

private:
    const char* name_;
    void (*body_)(Line& parent);
};

/// Plays a role in a program that was executed for it. The exit status.
int playRole(const std::string& name, int lineDescriptor, int failuresDescriptor);

#endif
