// Plays inputs again: the files that are named, and all that lie in the directories that are named.

#include <sys/stat.h>

#include <algorithm>
#include <fstream>
#include <iostream>
#include <iterator>

#include "tests/kit/domain.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

void play(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    EXPECT_TRUE(file.is_open()) << path;
    std::cerr << path << std::endl;  // before, so that the last one is the one that failed
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
}

}  // namespace

int main(int argc, char** argv) {
    const linxtest::TestDomain domain;
    int played = 0;
    for (int i = 1; i < argc; ++i) {
        const std::string path = argv[i];
        struct stat status;
        std::vector<std::string> files = {path};
        if (stat(argv[i], &status) == 0 && S_ISDIR(status.st_mode)) {
            files.clear();
            for (const std::string& name : linxtest::namesIn(path)) files.push_back(path + "/" + name);
            std::sort(files.begin(), files.end());
        }
        for (const std::string& file : files) play(file);
        played += static_cast<int>(files.size());
    }
    std::cout << played << " inputs played\n";
    return played == 0 || testing::Test::HasFailure() ? 1 : 0;
}
