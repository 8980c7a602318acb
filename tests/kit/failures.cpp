#include "tests/kit/failures.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>

struct Failures::Page {
    static constexpr uint32_t capacity = 4000;

    std::atomic<uint32_t> length;  ///< of the text; raised once what is counted has been written
    char text[capacity];

    void add(const std::string& more) {
        const uint32_t before = length;
        const auto fitting = static_cast<uint32_t>(std::min<size_t>(more.size(), capacity - before));
        std::memcpy(text + before, more.data(), fitting);
        length = before + fitting;
    }
};

class Failures::Listener : public testing::EmptyTestEventListener {
public:
    explicit Listener(const Failures& failures) : page_(*failures.page_), descriptor(failures.descriptor_) {}
    void OnTestPartResult(const testing::TestPartResult& result) override {
        if (!result.failed()) return;
        const std::string file = result.file_name() == nullptr ? "" : result.file_name();
        page_.add(file + ":" + std::to_string(result.line_number()) + ": " + result.message() + "\n");
    }

    static Listener* current;

private:
    Page& page_;

public:
    const int descriptor;
};

Failures::Listener* Failures::Listener::current = nullptr;

Failures::Failures() : Failures(memfd_create("failures", MFD_CLOEXEC)) {}

Failures::Failures(int descriptor) : descriptor_(descriptor) {
    if (ftruncate(descriptor_, sizeof(Page)) == -1) std::abort();
    void* memory = mmap(nullptr, sizeof(Page), PROT_READ | PROT_WRITE, MAP_SHARED, descriptor_, 0);
    if (memory == MAP_FAILED) std::abort();
    page_ = static_cast<Page*>(memory);
}

Failures::~Failures() {
    munmap(page_, sizeof(Page));
    closeDescriptor();
}

void Failures::closeDescriptor() {
    if (descriptor_ != -1) close(descriptor_);
    descriptor_ = -1;
}

void Failures::note() const {
    testing::TestEventListeners& listeners = testing::UnitTest::GetInstance()->listeners();
    delete listeners.Release(Listener::current);  // of the process that this one is a fork of
    Listener::current = new Listener(*this);
    listeners.Append(Listener::current);
}

std::string Failures::text() const {
    return std::string(page_->text, page_->length);
}

int Failures::ownDescriptor() {
    return Listener::current == nullptr ? -1 : Listener::current->descriptor;
}
