#include "link/configuration/key_file.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

namespace {

using namespace linx::link;
using testing::HasSubstr;

const std::string someKey = "JTKVSB%%)wK0E.X)V>+}o?pNmC{O&4W4b!Ni{Lh6";

class KeyFileTest : public testing::Test {
protected:
    KeyFileTest() {
        std::string name = testing::TempDir() + "linx-key.XXXXXX";
        directory_ = mkdtemp(name.data());
        path = directory_ + "/link.key";
    }
    ~KeyFileTest() override { std::filesystem::remove_all(directory_); }

    void put(const std::string& text, mode_t mode) {
        std::ofstream(path, std::ios::binary) << text;
        chmod(path.c_str(), mode);
    }

    std::string path;
    std::string trouble;

private:
    std::string directory_;
};

}  // namespace

TEST_F(KeyFileTest, WhatWasWrittenIsReadAndNobodyElseMay) {
    const mode_t before = umask(0);
    ASSERT_TRUE(writeKeyFile(path, someKey, trouble)) << trouble;
    umask(before);
    struct stat file = {};
    ASSERT_EQ(stat(path.c_str(), &file), 0);
    EXPECT_EQ(file.st_mode & 07777, 0600u);
    EXPECT_EQ(readKeyFile(path, trouble), someKey) << trouble;
}

TEST_F(KeyFileTest, AKeyThatIsThereIsNotWrittenOver) {
    put("the only one\n", 0600);
    EXPECT_FALSE(writeKeyFile(path, someKey, trouble));
    EXPECT_THAT(trouble, HasSubstr("is there already"));
    std::string line;
    std::getline(std::ifstream(path), line);
    EXPECT_EQ(line, "the only one");
}

TEST_F(KeyFileTest, OneThatOthersMayUseInAnyWayIsRefused) {
    for (const mode_t mode : {0604u, 0640u, 0602u, 0620u, 0601u, 0610u}) {
        put(someKey + "\n", mode);
        EXPECT_FALSE(readKeyFile(path, trouble)) << std::oct << mode;
        EXPECT_THAT(trouble, HasSubstr("is open to others (mode 06")) << std::oct << mode;
    }
    put(someKey + "\n", 0400);
    EXPECT_TRUE(readKeyFile(path, trouble)) << trouble;
}

TEST_F(KeyFileTest, OneOfAnotherUserIsRefused) {
    put(someKey + "\n", 0600);
    if (chown(path.c_str(), 12345, 12345) == -1) GTEST_SKIP() << "only root can give files away";
    EXPECT_FALSE(readKeyFile(path, trouble));
    EXPECT_EQ(trouble, "belongs to another user (12345), who could have put any key there");
}

TEST_F(KeyFileTest, WhatHoldsNoKeyIsRefused) {
    for (const std::string& text :
         {std::string(), someKey.substr(1), someKey + "0", someKey + "\n\n", "\n" + someKey}) {
        put(text, 0600);
        EXPECT_FALSE(readKeyFile(path, trouble)) << text;
        EXPECT_EQ(trouble, "holds no secret key; \"linx-link keygen FILE\" makes one");
    }
}

TEST_F(KeyFileTest, WhatIsNoFileIsRefusedAndHoldsNobodyUp) {
    EXPECT_FALSE(readKeyFile(path, trouble));
    EXPECT_EQ(trouble, "cannot be read: No such file or directory");
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    EXPECT_FALSE(readKeyFile(path, trouble));
    EXPECT_EQ(trouble, "is no file; \"linx-link keygen FILE\" makes one");
}
