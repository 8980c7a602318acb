#include "tests/fuzz/arena/image.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "tests/fuzz/claim.h"
#include "tests/kit/garbler.h"

namespace fuzz {
namespace {

constexpr uint32_t pageCount = 1024;  // the smallest arena
constexpr int64_t wholeLength = (linx::firstPoolPage(pageCount) + pageCount) * int64_t{linx::pageBytes};

int64_t lengthOf(int file) {
    struct stat status;
    return fstat(file, &status) == 0 ? static_cast<int64_t>(status.st_size) : -1;
}

/// Copies what there is of it, and leaves the holes.
void copyData(int from, int to, int64_t length) {
    char page[linx::pageBytes];
    for (int64_t data = 0; (data = lseek(from, data, SEEK_DATA)) != -1 && data < length;) {
        const int64_t hole = std::min(length, static_cast<int64_t>(lseek(from, data, SEEK_HOLE)));
        for (; data < hole; data += int64_t{sizeof page}) {
            const auto bytes = static_cast<size_t>(std::min(hole - data, int64_t{sizeof page}));
            claim(pread(from, page, bytes, data) != -1 && pwrite(to, page, bytes, data) != -1, "an arena is copied");
        }
    }
}

}  // namespace

Image::Image(const std::string& domain) : domain_(domain) {
    file_ = open(pathOf("arena").c_str(), O_RDWR | O_CLOEXEC);
    length_ = lengthOf(file_);
    claim(length_ == wholeLength, "an arena has the length that was chosen");
    map();
}

Image::~Image() {
    unmap();
}

void Image::map() {
    if (length_ != wholeLength) return;
    void* base = mmap(nullptr, wholeLength, PROT_READ | PROT_WRITE, MAP_SHARED, file_, 0);
    claim(base != MAP_FAILED, "an arena is mapped");
    base_ = static_cast<char*>(base);
}

void Image::unmap() {
    if (base_ != nullptr) munmap(base_, wholeLength);
    base_ = nullptr;
    close(file_);
}

void Image::garble(Input& input) {
    if (base_ == nullptr) return;
    const auto draw = [&](uint32_t bound) { return input.below(bound); };
    linxtest::Garbler<decltype(draw)>(base_, pageCount, draw).garble(linxtest::Region{draw(linxtest::regionCount)});
}

void Image::replace(int64_t length) {
    const int copy = open(pathOf("copy").c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    claim(copy != -1 && ftruncate(copy, length) == 0, "a copy is made");
    copyData(file_, copy, std::min(length, length_));
    claim(rename(pathOf("copy").c_str(), pathOf("arena").c_str()) == 0, "a copy is put in place");
    unmap();
    file_ = copy;
    length_ = length;
    map();
}

bool Image::isOfItsLength() const {
    return lengthOf(file_) == length_;
}

}  // namespace fuzz
