#ifndef LINXIPC_TESTS_FUZZ_PLAYGROUND_H
#define LINXIPC_TESTS_FUZZ_PLAYGROUND_H

#include <string>

namespace fuzz {

/// The domain in which an input is played: the directory that $LINX_DOMAIN names, emptied when this object is made
/// and when it goes. No descriptor of this process may be left open that was not open before.
class Playground {
public:
    Playground();
    ~Playground();
    Playground(const Playground&) = delete;
    Playground& operator=(const Playground&) = delete;

    const std::string& path() const { return path_; }

private:
    std::string path_;
    int firstFreeDescriptor_;
};

}  // namespace fuzz

#endif
