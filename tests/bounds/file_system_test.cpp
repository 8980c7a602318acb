// A file system without room for the arena, for more of it, or for another doorbell.

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>

#include "host/arena/layout.h"
#include "tests/bounds/mount.h"
#include "tests/kit/child.h"
#include "tests/kit/domain_test.h"
#include "tests/kit/signals.h"

namespace {

constexpr uint32_t item = 100;

class FullFileSystem : public ProcessTest {
protected:
    /// Runs `body` in a process that has such a file system in the place of the domain.
    void with(const std::string& options, const std::function<void()>& body) const {
        Child child([&](Line& parent) {
            const bool mounted = mayMountForItself() && mountMemory(domain.path(), options);
            parent.tell(mounted);
            if (mounted) body();
        });
        const bool mounted = child.hear() != 0;
        EXPECT_EQ(child.exitStatus(), 0);
        if (!mounted) GTEST_SKIP() << "nothing may be mounted here";
    }

    static int errorOfOpen(const std::string& name) {
        LINX* linx = linx_open(name.c_str(), 0, nullptr);
        if (linx == nullptr) return errno;
        linx_close(linx);
        return 0;
    }

    std::string filler() const { return domain.pathOf("filler"); }

    /// Takes all the room that is left.
    void fill() const {
        const int file = open(filler().c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        const std::string page(4096, 'x');
        while (write(file, page.data(), page.size()) > 0) {
        }
        EXPECT_EQ(errno, ENOSPC);
        EXPECT_EQ(close(file), 0);
    }
};

/// Sends signals of so many words to oneself until there is no memory. Returns how many.
uint32_t sendUntilFull(LINX* linx, LinxSpid own, size_t words) {
    for (uint32_t sent = 0;; ++sent) {
        const int result = send(linx, own, item, std::vector<uint32_t>(words, sent));
        if (result == 0) continue;
        EXPECT_EQ(result, ENOMEM);
        return sent;
    }
}

void expectAll(LINX* linx, uint32_t sent) {
    for (uint32_t i = 0; i < sent; ++i) ASSERT_EQ(expectSignal(linx, item, 0).word(), i);
    expectNothing(linx);
}

TEST_F(FullFileSystem, IsAnErrorOfTheSenderAndNoFault) {
    with("size=4m", [&] {
        Endpoint endpoint("endpoint");
        const LinxSpid own = spidOf(endpoint);
        // Room of one size becomes room of another also where no new memory can be had.
        for (const size_t words : {1000u, 20000u, 10u, 60000u}) {
            const uint32_t sent = sendUntilFull(endpoint, own, words);
            EXPECT_GT(sent * words * sizeof(uint32_t), 100u << 10) << words;
            expectAll(endpoint, sent);
        }
    });
}

TEST_F(FullFileSystem, GivesMemoryOnceSomethingWasRemoved) {
    with("size=8m", [&] {
        Endpoint endpoint("endpoint");
        const LinxSpid own = spidOf(endpoint);
        fill();
        const uint32_t sent = sendUntilFull(endpoint, own, 20000);
        EXPECT_EQ(unlink(filler().c_str()), 0);
        EXPECT_EQ(send(endpoint, own, item, std::vector<uint32_t>(20000, sent)), 0);
        expectAll(endpoint, sent + 1);
    });
}

TEST_F(FullFileSystem, TakesNoEndpointMoreAndKeepsTheOthers) {
    with("size=8m", [&] {
        Endpoint endpoint("endpoint");
        const LinxSpid own = spidOf(endpoint);
        EXPECT_EQ(linx_hunt(endpoint, "absent", nullptr), 0);
        fill();
        std::vector<LINX*> more;
        while (LINX* linx = linx_open(std::to_string(more.size()).c_str(), 0, nullptr)) more.push_back(linx);
        EXPECT_EQ(errno, ENOMEM);
        EXPECT_LT(more.size(), 100u);
        int result;
        uint32_t hunts = 0;
        do {
            LinxSignal* signal = linx_alloc(endpoint, sizeof(LinxSignal), item);
            result = linx_hunt(endpoint, "rare", &signal) == 0 ? 0 : errno;
            EXPECT_EQ(signal, nullptr);
        } while (result == 0 && ++hunts < 1000);
        EXPECT_EQ(result, ENOMEM);
        EXPECT_EQ(send(endpoint, own, item), 0);
        expectSignal(endpoint, item, 0);
        EXPECT_EQ(unlink(filler().c_str()), 0);
        for (LINX* linx : more) EXPECT_EQ(linx_close(linx), 0);
        const Endpoint absent("absent");
        const Endpoint rare("rare");
        EXPECT_EQ(expectSignal(endpoint, LINX_OS_HUNT_SIG, 0).sender, spidOf(absent));
        for (uint32_t i = 0; i < hunts; ++i) EXPECT_EQ(expectSignal(endpoint, item, 0).sender, spidOf(rare));
        expectNothing(endpoint);
    });
}

TEST_F(FullFileSystem, IsNoFaultWhereAGarbledReferenceLeads) {
    with("size=8m", [&] {
        Endpoint endpoint("endpoint");
        const LinxSpid own = spidOf(endpoint);
        const std::string path = domain.pathOf("arena");
        const int file = open(path.c_str(), O_RDWR | O_CLOEXEC);
        void* tables = mmap(nullptr, linx::pageMapOffset, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
        ASSERT_NE(tables, MAP_FAILED);
        auto& header = *static_cast<linx::Header*>(tables);
        const uint32_t pages = header.pageCount.loadRelaxed();
        const uint32_t last = linx::makePageEntry(linx::SizeClassId{0}, 0);
        ASSERT_EQ(pwrite(file, &last, sizeof last, linx::pageMapOffset + (pages - 1) * 4), ssize_t{sizeof last});
        fill();
        header.pagesUsed.storeRelaxed(pages);
        auto* slots = reinterpret_cast<linx::Slot*>(static_cast<char*>(tables) + linx::slotsOffset);
        const linx::StackHead missing{(linx::firstPoolPage(pages) + pages - 1) * linx::linesPerPage};
        slots[numberOf(linx::indexOf(linx::Spid{own}))].mailbox.storeRelaxed(missing);
        expectNothing(endpoint);
        EXPECT_EQ(send(endpoint, own, item), 0);
        expectSignal(endpoint, item, 0);
        EXPECT_EQ(munmap(tables, linx::pageMapOffset), 0);
        EXPECT_EQ(close(file), 0);
    });
}

TEST_F(FullFileSystem, TakesANewEndpointWhereAnotherHasEnded) {
    with("size=8m", [&] {
        Endpoint endpoint("endpoint");
        const LinxSpid own = spidOf(endpoint);
        std::vector<std::unique_ptr<Endpoint>> more;
        const auto openMore = [&] { more.push_back(std::make_unique<Endpoint>(std::to_string(more.size()))); };
        for (int i = 0; i < 20; ++i) openMore();
        fill();
        while (LINX* linx = linx_open("last", 0, nullptr)) {  // what memory there is goes to fresh ones
            EXPECT_EQ(linx_close(linx), 0);
            openMore();
        }
        EXPECT_EQ(errno, ENOMEM);
        for (int round = 0; round < 3; ++round) {
            more[5].reset();
            EXPECT_EQ(errorOfOpen("another"), 0);
            more[5] = std::make_unique<Endpoint>("instead");
            EXPECT_EQ(nameOf(endpoint, hunt(endpoint, "instead")), "instead");
            EXPECT_EQ(errorOfOpen("another"), ENOMEM);
        }
        EXPECT_EQ(send(endpoint, own, item), 0);
        expectSignal(endpoint, item, 0);
    });
}

TEST_F(FullFileSystem, HoldsNoArenaThatIsHalfMade) {
    with("size=64k", [&] {
        EXPECT_EQ(errorOfOpen("endpoint"), ENOMEM);
        EXPECT_EQ(domain.files(), std::vector<std::string>());
    });
}

TEST_F(FullFileSystem, ThatIsOnlyForReadingTakesNoDomainAndNoEndpoint) {
    with("size=8m", [&] {
        const auto remount = [&](unsigned long flags) {
            ASSERT_EQ(mount(nullptr, domain.path().c_str(), nullptr, MS_REMOUNT | flags, "size=8m"), 0);
        };
        remount(MS_RDONLY);
        EXPECT_EQ(errorOfOpen("endpoint"), EROFS);
        remount(0);
        EXPECT_EQ(errorOfOpen("endpoint"), 0);
        remount(MS_RDONLY);
        EXPECT_EQ(errorOfOpen("endpoint"), EROFS);
        const linxtest::ScopedVariable below("LINX_DOMAIN", domain.pathOf("below").c_str());
        EXPECT_EQ(errorOfOpen("endpoint"), EROFS);
    });
}

TEST_F(FullFileSystem, WithoutRoomForAnotherFileTakesNoEndpoint) {
    with("size=8m,nr_inodes=3", [&] {  // itself, the arena and a doorbell
        Endpoint endpoint("endpoint");
        const LinxSpid own = spidOf(endpoint);
        for (int i = 0; i < 10; ++i) EXPECT_EQ(errorOfOpen("other"), ENOSPC);
        EXPECT_EQ(send(endpoint, own, item), 0);
        expectSignal(endpoint, item, 0);
        endpoint.close();
        EXPECT_EQ(errorOfOpen("other"), 0);
    });
}

TEST_F(FullFileSystem, OfProcessesIsNotNeeded) {
    with("size=8m", [&] {
        ASSERT_TRUE(mountMemory("/proc", "size=4k"));
        EXPECT_EQ(errorOfOpen("endpoint"), 0);
        EXPECT_EQ(domain.files(), std::vector<std::string>{"arena"});
    });
}

}  // namespace
