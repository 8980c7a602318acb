#ifndef LINXIPC_TESTS_FUZZ_CLAIM_H
#define LINXIPC_TESTS_FUZZ_CLAIM_H

#include <cstdio>
#include <cstdlib>
#include <string>

namespace fuzz {

/// Ends the process when what is claimed is not so.
inline void claim(bool isSo, const std::string& sentence) {
    if (isSo) return;
    std::fprintf(stderr, "not so: %s\n", sentence.c_str());
    std::abort();
}

}  // namespace fuzz

#endif
