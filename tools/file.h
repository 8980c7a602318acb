#ifndef LINXIPC_TOOLS_FILE_H
#define LINXIPC_TOOLS_FILE_H

#include <cstdio>
#include <memory>
#include <string>

namespace tools {

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

/// Throw Failures that say why not.
File openToRead(const std::string& name);
File openToWrite(const std::string& name);
[[noreturn]] void failToRead(const std::string& name, int reason);
[[noreturn]] void failToWrite(const std::string& name, int reason);

}  // namespace tools

#endif
