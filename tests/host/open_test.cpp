#include <fcntl.h>
#include <grp.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <cerrno>
#include <fstream>
#include <thread>

#include "host/arena/arena_file.h"
#include "host/arena/domain_path.h"
#include "tests/host/endpoints.h"
#include "tests/kit/byte_order.h"
#include "tests/kit/child.h"

namespace linx {
namespace {

using linxtest::KnownEndpoint;
using linxtest::ScopedVariable;
using linxtest::TestDomain;

class OpenTest : public linxtest::DomainTest {
protected:
    static int errorOfOpen(const char* name, uint32_t options = 0, void* argument = nullptr) {
        errno = 0;
        LINX* linx = linx_open(name, options, argument);
        if (linx == nullptr) return errno;
        linx_close(linx);
        return 0;
    }
    static int errorOfOpen(const std::string& name) { return errorOfOpen(name.c_str()); }

    std::string arenaPath() const { return domain.pathOf("arena"); }

    void overwrite(off_t offset, uint32_t word) const {
        const ScopedDescriptor file(open(arenaPath().c_str(), O_RDWR | O_CLOEXEC));
        ASSERT_EQ(pwrite(file.get(), &word, sizeof word, offset), 4);
    }
    uint32_t read(off_t offset) const {
        uint32_t word = 0;
        const ScopedDescriptor file(open(arenaPath().c_str(), O_RDONLY | O_CLOEXEC));
        EXPECT_EQ(pread(file.get(), &word, sizeof word, offset), 4);
        return word;
    }
};

TEST_F(OpenTest, NamesHaveOneTo255Bytes) {
    EXPECT_EQ(errorOfOpen(""), EINVAL);
    EXPECT_EQ(errorOfOpen(nullptr), EINVAL);
    EXPECT_EQ(errorOfOpen("x"), 0);
    EXPECT_EQ(errorOfOpen(std::string(255, 'x')), 0);
    EXPECT_EQ(errorOfOpen(std::string(256, 'x')), ENAMETOOLONG);
    EXPECT_EQ(errorOfOpen(std::string(100000, 'x')), ENAMETOOLONG);
}

TEST_F(OpenTest, AnyOtherBytesAreFineInAName) {
    const KnownEndpoint one("toVp0/EncodeCtrl");
    const KnownEndpoint other("\xff\x01 \n%s");
    char* name = nullptr;
    ASSERT_EQ(linx_get_name(one, other.spid, &name), 0);
    EXPECT_STREQ(name, "\xff\x01 \n%s");
    EXPECT_EQ(linx_free_name(one, &name), 0);
}

TEST_F(OpenTest, WhatIsReservedMustBeNothing) {
    int something = 0;
    EXPECT_EQ(errorOfOpen("x", 2), EINVAL);
    EXPECT_EQ(errorOfOpen("x", 0, &something), EINVAL);
    EXPECT_TRUE(domain.files().empty());
}

TEST_F(OpenTest, ANameIsTakenOnceUntilItsEndpointEnds) {
    {
        const KnownEndpoint first("x");
        EXPECT_EQ(errorOfOpen("x"), EADDRINUSE);
        EXPECT_EQ(errorOfOpen("y"), 0);
    }
    EXPECT_EQ(errorOfOpen("x"), 0);
}

TEST_F(OpenTest, TheDomainIsAPathOrABareWordBesideTheDefault) {
    const std::string byDefault = "/dev/shm/linx." + std::to_string(geteuid());
    const auto pathFor = [](const char* text) {
        const ScopedVariable variable("LINX_DOMAIN", text);
        return domainPath();
    };
    EXPECT_EQ(pathFor(nullptr), byDefault);
    EXPECT_EQ(pathFor(""), byDefault);
    EXPECT_EQ(pathFor("word"), byDefault + ".word");
    EXPECT_EQ(pathFor("/some/where"), "/some/where");
    EXPECT_EQ(pathFor("some/where"), "");
    EXPECT_EQ(pathFor("./where"), "");
}

TEST_F(OpenTest, ARelativePathIsNoDomain) {
    const ScopedVariable variable("LINX_DOMAIN", "some/where");
    EXPECT_EQ(errorOfOpen("x"), EINVAL);
}

TEST_F(OpenTest, TheDirectoryIsMadeForItsUserAlone) {
    const std::string path = domain.pathOf("made");
    {
        const ScopedVariable variable("LINX_DOMAIN", path.c_str());
        EXPECT_EQ(errorOfOpen("x"), 0);
    }
    struct stat status;
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777u, 0700u);
    ASSERT_EQ(stat((path + "/arena").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777u, 0600u);
    EXPECT_EQ(unlink((path + "/arena").c_str()), 0);
    EXPECT_EQ(rmdir(path.c_str()), 0);
}

TEST_F(OpenTest, FilesTakeGroupAccessFromTheDirectory) {
    ASSERT_EQ(chmod(domain.path().c_str(), 02770), 0);
    const KnownEndpoint linx("x");
    for (const std::string& name : domain.files()) {
        struct stat status;
        ASSERT_EQ(stat(domain.pathOf(name).c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777u, 0660u) << name;
    }
}

TEST_F(OpenTest, ADirectoryInWhichAnybodyMayExchangeFilesIsNotTrusted) {
    ASSERT_EQ(chmod(domain.path().c_str(), 0777), 0);
    EXPECT_EQ(errorOfOpen("x"), EACCES);
    ASSERT_EQ(chmod(domain.path().c_str(), 01777), 0);
    EXPECT_EQ(errorOfOpen("x"), 0);
}

TEST_F(OpenTest, WhatIsNoDirectoryIsNoDomain) {
    const std::string file = domain.pathOf("file");
    const std::string link = domain.pathOf("link");
    std::ofstream(file) << "text";
    ASSERT_EQ(symlink(domain.path().c_str(), link.c_str()), 0);
    {
        const ScopedVariable variable("LINX_DOMAIN", file.c_str());
        EXPECT_EQ(errorOfOpen("x"), ENOTDIR);
    }
    {
        const ScopedVariable variable("LINX_DOMAIN", link.c_str());
        EXPECT_EQ(errorOfOpen("x"), ENOTDIR);
    }
    {
        const ScopedVariable variable("LINX_DOMAIN", domain.pathOf("absent/deep").c_str());
        EXPECT_EQ(errorOfOpen("x"), ENOENT);
    }
    unlink(file.c_str());
    unlink(link.c_str());
}

TEST_F(OpenTest, AnArenaOfAnotherMakeIsRefused) {
    ASSERT_EQ(errorOfOpen("x"), 0);
    for (off_t offset = 0; offset < 40; offset += 4) {
        const uint32_t before = read(offset);
        for (const uint32_t wrong : {0u, before + 1, before - 1, __builtin_bswap32(before), ~0u}) {
            if (wrong == before) continue;
            overwrite(offset, wrong);
            EXPECT_EQ(errorOfOpen("x"), EPROTO) << "offset " << offset << " word " << wrong;
        }
        overwrite(offset, before);
    }
    EXPECT_EQ(errorOfOpen("x"), 0);
}

TEST_F(OpenTest, AnArenaBeginsWithItsNumberInTheMakersByteOrder) {
    ASSERT_EQ(errorOfOpen("x"), 0);
    const uint32_t number = read(0);
    EXPECT_EQ(linxtest::bytesOf(&number, sizeof number), linxtest::written("4C 6E 78 41", "41 78 6E 4C"));
}

TEST_F(OpenTest, AnArenaOfTheOtherByteOrderIsRefused) {
    ASSERT_EQ(errorOfOpen("x"), 0);
    const auto swapHeader = [&] {
        for (off_t offset = 0; offset < static_cast<off_t>(sizeof(Header)); offset += 4) {
            overwrite(offset, __builtin_bswap32(read(offset)));
        }
    };
    swapHeader();
    EXPECT_EQ(errorOfOpen("x"), EPROTO);
    swapHeader();
    EXPECT_EQ(errorOfOpen("x"), 0);
}

TEST_F(OpenTest, AnArenaOfTheWrongLengthIsRefused) {
    ASSERT_EQ(errorOfOpen("x"), 0);
    struct stat status;
    ASSERT_EQ(stat(arenaPath().c_str(), &status), 0);
    for (const off_t length : {off_t{0}, off_t{4}, off_t{100}, off_t{4096}, status.st_size - 1, status.st_size + 1}) {
        const ScopedDescriptor file(open(arenaPath().c_str(), O_RDWR | O_CLOEXEC));
        Header header{};
        ASSERT_EQ(pread(file.get(), &header, sizeof header, 0), static_cast<ssize_t>(sizeof header));
        ASSERT_EQ(ftruncate(file.get(), length), 0);
        EXPECT_EQ(errorOfOpen("x"), EPROTO) << length;
        ASSERT_EQ(ftruncate(file.get(), status.st_size), 0);
        ASSERT_EQ(pwrite(file.get(), &header, sizeof header, 0), static_cast<ssize_t>(sizeof header));
    }
    EXPECT_EQ(errorOfOpen("x"), 0);
}

TEST_F(OpenTest, WhatIsNoFileIsNoArena) {
    ASSERT_EQ(mkdir(arenaPath().c_str(), 0700), 0);
    EXPECT_EQ(errorOfOpen("x"), EPROTO);
    ASSERT_EQ(rmdir(arenaPath().c_str()), 0);
    ASSERT_EQ(symlink("/dev/null", arenaPath().c_str()), 0);
    EXPECT_EQ(errorOfOpen("x"), EPROTO);
    ASSERT_EQ(unlink(arenaPath().c_str()), 0);
    ASSERT_EQ(symlink("nowhere", arenaPath().c_str()), 0);
    EXPECT_EQ(errorOfOpen("x"), EPROTO);
    ASSERT_EQ(unlink(arenaPath().c_str()), 0);
    ASSERT_EQ(mkfifo(arenaPath().c_str(), 0600), 0);
    EXPECT_EQ(errorOfOpen("x"), EPROTO);
    ASSERT_EQ(unlink(arenaPath().c_str()), 0);
}

/// `open` run as a user who may do nothing here.
int errorOfOpenAsNobody(const char* name) {
    Child child([&](Line&) {
        if (setgroups(0, nullptr) != 0 || setgid(65534) != 0 || setuid(65534) != 0) _exit(255);
        _exit(linx_open(name, 0, nullptr) == nullptr ? errno : 0);
    });
    return child.exitStatus();
}

TEST_F(OpenTest, AnotherUsersDomainIsNotOursToJoin) {
    if (geteuid() == 0) {
        EXPECT_EQ(errorOfOpenAsNobody("x"), EACCES);
        EXPECT_EQ(errorOfOpen("x"), 0);
        EXPECT_EQ(errorOfOpenAsNobody("x"), EACCES);
    } else {
        ASSERT_EQ(chmod(domain.path().c_str(), 0), 0);
        EXPECT_EQ(errorOfOpen("x"), EACCES);
        ASSERT_EQ(chmod(domain.path().c_str(), 0700), 0);
    }
}

TEST_F(OpenTest, AnArenaThatMayNotBeReadIsNotOursToJoin) {
    if (geteuid() != 0) GTEST_SKIP() << "needs another user's file";
    ASSERT_EQ(errorOfOpen("x"), 0);
    ASSERT_EQ(chmod(domain.path().c_str(), 0755), 0);
    EXPECT_EQ(errorOfOpenAsNobody("x"), EACCES);
}

TEST_F(OpenTest, FirstEndpointsAtTheSameInstantAgreeOnOneArena) {
    for (int round = 0; round < 20; ++round) {
        unlink(arenaPath().c_str());
        constexpr int count = 4;
        std::atomic<int> waiting{count};
        LINX* endpoints[count] = {};
        std::vector<std::thread> threads;
        for (int i = 0; i < count; ++i) {
            threads.emplace_back([&, i] {
                const std::string name = "first" + std::to_string(i);
                --waiting;
                while (waiting != 0) {
                }
                endpoints[i] = linx_open(name.c_str(), 0, nullptr);
            });
        }
        for (std::thread& thread : threads) thread.join();
        for (LINX* linx : endpoints) {
            ASSERT_NE(linx, nullptr);
            // Each meets each: they are in one arena.
            for (int i = 0; i < count; ++i) {
                LinxSignal* found = nullptr;
                ASSERT_EQ(linx_hunt(linx, ("first" + std::to_string(i)).c_str(), nullptr), 0);
                ASSERT_EQ(linx_receive_w_tmo(linx, &found, 0, anySignal), 4);
                linx_free_buf(linx, &found);
            }
        }
        for (LINX* linx : endpoints) linx_close(linx);
        EXPECT_TRUE(domain.leftovers().empty());
    }
}

TEST_F(OpenTest, TheArenasSizeIsChosenWithinBounds) {
    const uint32_t most = sizeof(void*) < 8 ? 1024 : 16384;  // as much as one mapping may well hold
    const auto megabytesFor = [&](const char* text) {
        const ScopedVariable variable("LINX_ARENA_MB", text);
        unlink(arenaPath().c_str());
        EXPECT_EQ(errorOfOpen("x"), 0);
        return read(offsetof(Header, pageCount)) / ((1u << 20) / pageBytes);
    };
    EXPECT_EQ(megabytesFor(nullptr), 256u);
    EXPECT_EQ(megabytesFor(""), 256u);
    EXPECT_EQ(megabytesFor("many"), 256u);
    EXPECT_EQ(megabytesFor("8MB"), 256u);
    EXPECT_EQ(megabytesFor("0"), 256u);
    EXPECT_EQ(megabytesFor("3"), 256u);
    EXPECT_EQ(megabytesFor("4"), 4u);
    EXPECT_EQ(megabytesFor("100"), 100u);
    EXPECT_EQ(megabytesFor("16384"), most);
    for (const char* bad : {"16385", "99999999999999999999", "-1", "+8", " 8", "0x10"}) {
        EXPECT_EQ(megabytesFor(bad), 256u) << bad;
    }
}

TEST_F(OpenTest, AnArenaThatIsThereKeepsItsSize) {
    const ScopedVariable variable("LINX_ARENA_MB", "8");
    const KnownEndpoint first("first");
    const ScopedVariable other("LINX_ARENA_MB", "64");
    const KnownEndpoint second("second");
    EXPECT_EQ(read(offsetof(Header, pageCount)), 8u * 256);
}

TEST_F(OpenTest, WithoutASlotThereIsNoEndpointUntilOneEnds) {
    const linxtest::DisorderAllowed allowed;
    KnownEndpoint last("last");
    {
        const std::shared_ptr<Domain> joined = Domain::join();
        Header& header = joined->arena().header();
        const uint32_t used = header.slotsUsed.loadRelaxed();
        header.slotsUsed.storeRelaxed(slotCount - 1);
        EXPECT_EQ(errorOfOpen("more"), ENOSPC);
        last.close();
        EXPECT_EQ(errorOfOpen("more"), 0);
        header.slotsUsed.storeRelaxed(used);
    }
}

TEST_F(OpenTest, TheDoorbellThatAnEarlierUserOfTheSlotCouldNotRemoveIsRemoved) {
    const linxtest::DisorderAllowed allowed;
    char leftBehind[16];
    {
        const KnownEndpoint earlier("earlier");
        std::snprintf(leftBehind, sizeof leftBehind, "bell.%08x", LinxSpid{earlier.spid});
    }
    ASSERT_EQ(mkfifo(domain.pathOf(leftBehind).c_str(), 0600), 0);
    const std::shared_ptr<Domain> joined = Domain::join();
    Header& header = joined->arena().header();
    const uint32_t used = header.slotsUsed.loadRelaxed();
    header.slotsUsed.storeRelaxed(slotCount - 1);
    EXPECT_EQ(errorOfOpen("next"), 0);
    EXPECT_EQ(domain.leftovers(), std::vector<std::string>());
    header.slotsUsed.storeRelaxed(used);
}

/// Descriptors that run out at each step of opening in turn.
TEST_F(OpenTest, WithoutDescriptorsNothingIsOpenedAndNothingIsLeft) {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP()
        << "the undefined-behaviour sanitizer opens a pipe to look at an object's type, and reports where it cannot";
#endif
    const size_t opened = TestDomain::openFileCount();
    rlimit before = {};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    rlim_t limit = 0;
    for (int error = EMFILE; error != 0; ++limit) {
        rlimit few = before;
        few.rlim_cur = limit;
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
        error = errorOfOpen("x");
        setrlimit(RLIMIT_NOFILE, &before);
        ASSERT_EQ(TestDomain::openFileCount(), opened);
        if (error != 0) {
            ASSERT_EQ(error, EMFILE) << limit;
        }
    }
    EXPECT_GT(limit, 4u);
    EXPECT_EQ(errorOfOpen("x"), 0);
    EXPECT_EQ(linxtest::brokenInvariant(*Domain::join()), "");
}

TEST_F(OpenTest, ADomainThatIsRemovedAndMadeAgainIsAnotherOne) {
    KnownEndpoint before("x");
    for (const std::string& name : domain.files()) unlink(domain.pathOf(name).c_str());
    const KnownEndpoint after("x");
    EXPECT_EQ(linx_hunt(before, "absent", nullptr), -1);
    EXPECT_EQ(errno, ESTALE);
    EXPECT_EQ(linx_alloc(before, 5000, 1), nullptr);
    EXPECT_EQ(errno, ESTALE);
    before.close();
    EXPECT_EQ(domain.leftovers().size(), 1u);
}

}  // namespace
}  // namespace linx
