#include "host/system/new_file.h"

#include <fcntl.h>
#include <sys/file.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fstream>
#include <optional>

#include "host/system/scoped_descriptor.h"
#include "tests/host/interposed.h"
#include "tests/kit/child.h"
#include "tests/kit/domain_test.h"

namespace linx {
namespace {

namespace interposed = linxtest::interposed;
using Names = std::vector<std::string>;

class NewFileTest : public linxtest::DomainTest {
protected:
    void TearDown() override {
        interposed::reset();
        for (const std::string& name : domain.files()) unlink(domain.pathOf(name).c_str());
        directory.reset();
        DomainTest::TearDown();
    }

    static bool writeText(int file) { return write(file, "text", 4) == 4; }
    bool make(const Fill& fill = writeText) const { return makeWhole(directory.get(), "file", fill); }
    bool makeUnderName(const Fill& fill = writeText) const {
        return makeWholeUnderName(directory.get(), "file", fill);
    }

    /// `making` in a process that is killed before it has filled the file.
    template <class Making>
    void dieIn(Making making) const {
        const auto die = [](int) { return raise(SIGKILL) == 0; };
        EXPECT_EQ(Child([&](Line&) { making(die); }).exitStatus(), -SIGKILL);
    }

    std::string text() const {
        std::string text;
        std::ifstream(domain.pathOf("file")) >> text;
        return text;
    }

    ScopedDescriptor directory{open(domain.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
};

TEST_F(NewFileTest, AFileHasItsNameOnceItIsWhole) {
    EXPECT_TRUE(make([&](int file) {
        EXPECT_EQ(domain.files(), Names());
        return writeText(file);
    }));
    EXPECT_EQ(text(), "text");
    EXPECT_EQ(domain.files(), Names{"file"});
}

TEST_F(NewFileTest, WhoDiesMakingOneLeavesNothing) {
    dieIn([&](const Fill& fill) { make(fill); });
    EXPECT_EQ(domain.files(), Names());
}

TEST_F(NewFileTest, OneThatCannotBeFilledLeavesNothing) {
    const auto fail = [](int) {
        errno = ENOMEM;
        return false;
    };
    EXPECT_FALSE(make(fail));
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_FALSE(makeUnderName(fail));
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_EQ(domain.files(), Names());
}

TEST_F(NewFileTest, TheFirstToBeWholeStays) {
    EXPECT_TRUE(make([&](int) { return make() && makeUnderName(); }));
    EXPECT_EQ(text(), "text");
    EXPECT_TRUE(makeUnderName([](int) { return true; }));
    EXPECT_EQ(text(), "text");
    EXPECT_EQ(domain.files(), Names{"file"});
}

TEST_F(NewFileTest, WhatTheDeadLeftUnderAnUnfinishedNameGoesWithTheNext) {
    dieIn([&](const Fill& fill) { makeUnderName(fill); });
    dieIn([&](const Fill& fill) { makeUnderName(fill); });
    EXPECT_EQ(domain.files().size(), 1u);  // the second has removed the first
    EXPECT_TRUE(makeUnderName());
    EXPECT_EQ(domain.files(), Names{"file"});
    EXPECT_EQ(text(), "text");
}

TEST_F(NewFileTest, WhereThereAreNoLocksNoneIsMadeAndNothingIsLeft) {
    interposed::atLock = [] { return ENOLCK; };
    EXPECT_FALSE(makeUnderName());
    EXPECT_EQ(errno, ENOLCK);
    EXPECT_EQ(domain.files(), Names());
}

TEST_F(NewFileTest, OneThatSomebodyTookForALeftoverIsMadeAgain) {
    int removed = 0;
    interposed::atLock = [&] {
        const Names names = domain.files();
        if (removed == 0 && names.size() == 1) removed += unlink(domain.pathOf(names[0]).c_str()) == 0 ? 1 : 0;
        return 0;
    };
    EXPECT_TRUE(makeUnderName());
    EXPECT_EQ(removed, 1);
    EXPECT_EQ(text(), "text");
    EXPECT_EQ(domain.files(), Names{"file"});
}

TEST_F(NewFileTest, AChildForkedWhileItWasMadeDoesNotKeepItsLock) {
    std::optional<Child> child;
    EXPECT_TRUE(makeUnderName([&](int) {
        child.emplace([](Line&) { pause(); });
        return true;
    }));
    const ScopedDescriptor made(openat(directory.get(), "file", O_RDWR | O_CLOEXEC));
    EXPECT_EQ(flock(made.get(), LOCK_EX | LOCK_NB), 0);
}

TEST_F(NewFileTest, WhatIsBeingMadeAndWhatOnlyLooksLikeItStays) {
    const Names others = {"file.", "file.0123456789abcdeg", "file.0123456789abcdef0", "other.0123456789abcdef"};
    for (const std::string& name : others) std::ofstream(domain.pathOf(name)) << "else";
    EXPECT_TRUE(makeUnderName([&](int) {
        EXPECT_TRUE(makeUnderName());
        EXPECT_EQ(domain.files().size(), others.size() + 2);
        return true;
    }));
    EXPECT_EQ(domain.files().size(), others.size() + 1);
    EXPECT_EQ(text(), "text");
}

}  // namespace
}  // namespace linx
