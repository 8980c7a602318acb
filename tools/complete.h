#ifndef LINXIPC_TOOLS_COMPLETE_H
#define LINXIPC_TOOLS_COMPLETE_H

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace tools {

/// For the adaptors of shells: writes what may stand for the last of these words, which follow the program's name on
/// a command line that is being written. First a line that says `words`, and then each, a tab, and what it is; or a
/// line that says `files` where a file may stand. What the command line may have, `app` knows. Names that no line can
/// have are left out.
int complete(const CLI::App& app, std::vector<std::string> words);

}  // namespace tools

#endif
