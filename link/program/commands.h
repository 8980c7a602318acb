#ifndef LINXIPC_LINK_PROGRAM_COMMANDS_H
#define LINXIPC_LINK_PROGRAM_COMMANDS_H

#include <string>

/// What the program does when it is called. What is asked for goes to standard output, what is wrong to standard
/// error; each answers the exit status.
namespace linx::link {

int makeKey(const std::string& path);
int check(const std::string& path);
/// Until SIGTERM or SIGINT.
int run(const std::string& path);

}  // namespace linx::link

#endif
