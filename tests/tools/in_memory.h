#ifndef LINXIPC_TESTS_TOOLS_IN_MEMORY_H
#define LINXIPC_TESTS_TOOLS_IN_MEMORY_H

#include <cstdlib>
#include <string>

#include "tools/file.h"

/// A stream to read this text from.
inline tools::File fileOf(const std::string& text) {
    tools::File file(std::tmpfile());
    std::fwrite(text.data(), 1, text.size(), file.get());
    std::rewind(file.get());
    return file;
}

/// What somebody writes into a stream.
template <class Write>
std::string writtenBy(Write write) {
    char* memory = nullptr;
    size_t size = 0;
    tools::File file(open_memstream(&memory, &size));
    write(file.get());
    file.reset();
    const std::string text(memory, size);
    std::free(memory);
    return text;
}

#endif
