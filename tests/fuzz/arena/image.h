#ifndef LINXIPC_TESTS_FUZZ_ARENA_IMAGE_H
#define LINXIPC_TESTS_FUZZ_ARENA_IMAGE_H

#include <string>

#include "tests/fuzz/input.h"

namespace fuzz {

/// The arena's file, as whoever may write to it sees it.
class Image {
public:
    /// Of the arena that lies in the directory `domain`.
    explicit Image(const std::string& domain);
    ~Image();
    Image(const Image&) = delete;
    Image& operator=(const Image&) = delete;

    /// Writes a word into it that does not belong there. Where, and what, the input tells.
    void garble(Input& input);

    /// Puts a copy in its place that nobody has open: all endpoints in it are dead ones. `length` is that of the
    /// copy; one of another length than the file's is not garbled any more.
    void replace(int64_t length);

    int64_t length() const { return length_; }

    /// Whether the file still has the length that it is to have.
    bool isOfItsLength() const;

private:
    void map();
    void unmap();
    std::string pathOf(const char* name) const { return domain_ + "/" + name; }

    const std::string domain_;
    int file_ = -1;
    char* base_ = nullptr;
    int64_t length_ = 0;
};

}  // namespace fuzz

#endif
