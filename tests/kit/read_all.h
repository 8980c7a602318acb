#ifndef LINXIPC_TESTS_KIT_READ_ALL_H
#define LINXIPC_TESTS_KIT_READ_ALL_H

#include "platform/linx.h"

namespace linxtest {

/// Touches every byte of a signal, for a sanitizer or a guard page to see whether it may.
inline void readAll(const LinxSignal* signal, int size) {
    const auto* bytes = reinterpret_cast<const volatile unsigned char*>(signal);
    unsigned sum = 0;
    for (int i = 0; i < size; ++i) sum += bytes[i];
    static_cast<void>(sum);
}

}  // namespace linxtest

#endif
