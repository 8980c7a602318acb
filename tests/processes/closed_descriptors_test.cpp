// Whoever closes all descriptors, as programs do that become daemons or workers, closes those of the platform too. It
// loses the endpoints that it had, no more.

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <vector>

#include "tests/kit/child.h"
#include "tests/kit/domain_test.h"
#include "tests/kit/signals.h"

namespace {

constexpr int first = 3;
constexpr int last = 40;
constexpr uint32_t item = 100;

/// Closes every descriptor but the standard ones and `kept`.
void closeAll(int kept = -1) {
    ASSERT_LT(linxtest::TestDomain::openFileCount(), static_cast<size_t>(last - first));
    for (int descriptor = first; descriptor != last; ++descriptor) {
        if (descriptor != kept) close(descriptor);
    }
}

/// Files of the program's own, no two of them the same, that take the numbers that have become free.
class OwnFiles {
public:
    explicit OwnFiles(const linxtest::TestDomain& domain) {
        for (int count = 0; count != 12; ++count) {
            const std::string path = domain.pathOf("own" + std::to_string(count));
            const int descriptor = open(path.c_str(), O_CREAT | O_RDWR, 0600);
            EXPECT_NE(descriptor, -1);
            EXPECT_EQ(unlink(path.c_str()), 0);
            descriptors_.push_back(descriptor);
            inodes_.push_back(inodeOf(descriptor));
        }
    }

    void expectUntouched() const {
        for (size_t i = 0; i != descriptors_.size(); ++i) EXPECT_EQ(inodeOf(descriptors_[i]), inodes_[i]);
    }

private:
    static ino_t inodeOf(int descriptor) {
        struct stat status = {};
        EXPECT_EQ(fstat(descriptor, &status), 0);
        return status.st_ino;
    }

    std::vector<int> descriptors_;
    std::vector<ino_t> inodes_;
};

class ClosedDescriptors : public ProcessTest {
protected:
    /// Opens an endpoint, which sends to `to`.
    static void openAndSend(LinxSpid to, uint32_t word) {
        Endpoint worker("worker");
        ASSERT_NE(static_cast<LINX*>(worker), nullptr);
        EXPECT_EQ(send(worker, to, item, {word}), 0);
    }
};

TEST_F(ClosedDescriptors, AChildThatClosedThemAllOpensAnEndpointOfItsOwn) {
    Endpoint parent("parent");
    const LinxSpid spid = spidOf(parent);
    Child child([&](Line&) {
        closeAll();
        openAndSend(spid, 1);
        openAndSend(spid, 2);
    });
    EXPECT_EQ(child.exitStatus(), 0);
    EXPECT_EQ(expectSignal(parent, item).word(), 1u);
    EXPECT_EQ(expectSignal(parent, item).word(), 2u);
}

TEST_F(ClosedDescriptors, AnEndpointOpensWhereOtherFilesHaveTakenTheirNumbers) {
    Endpoint parent("parent");
    const LinxSpid spid = spidOf(parent);
    Child child([&](Line&) {
        closeAll();
        const OwnFiles files(domain);
        openAndSend(spid, 1);
        openAndSend(spid, 2);
        files.expectUntouched();
    });
    EXPECT_EQ(child.exitStatus(), 0);
    EXPECT_EQ(expectSignal(parent, item).word(), 1u);
    EXPECT_EQ(expectSignal(parent, item).word(), 2u);
}

TEST_F(ClosedDescriptors, AForkLeavesAloneWhatHasTakenTheirNumbers) {
    Endpoint parent("parent");
    Child child([&](Line&) {
        closeAll();
        const OwnFiles files(domain);
        Child grandchild([&](Line&) { files.expectUntouched(); });
        EXPECT_EQ(grandchild.exitStatus(), 0);
    });
    EXPECT_EQ(child.exitStatus(), 0);
}

}  // namespace
