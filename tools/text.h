#ifndef LINXIPC_TOOLS_TEXT_H
#define LINXIPC_TOOLS_TEXT_H

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "host/arena/spid.h"
#include "inspect/processes.h"

namespace tools {

/// A name as it may go to a terminal: bytes that would steer it, or that are not UTF-8, as \xNN.
std::string printable(const std::string& text);

/// The characters of a printable text, all of which take one place as far as this program is concerned.
size_t widthOf(const std::string& text);

/// The first of these characters, and an ellipsis, where there are more.
std::string shortened(const std::string& text, size_t most);

/// Spids as doorbells are named after them.
std::string hexadecimal(linx::Spid spid);
std::string hexadecimal(const std::vector<unsigned char>& bytes);

/// A word of a command for the shell, quoted where it has to be: what it names may be called whatever others like.
std::string shellWord(const std::string& text);

/// The same of a name as a verb of this program takes it: also one that looks like an option.
std::string nameWord(const std::string& name);

/// "17 B", "4.2 KiB".
std::string humanBytes(uint64_t bytes);

/// "0.31 s", "42 s", "1 h 5 min".
std::string humanSeconds(double seconds);

/// Since then: nanoseconds of the monotonic clock.
double secondsSince(uint64_t nanoseconds);

/// A time of the world's clock, in nanoseconds since 1970, as ISO 8601 has it.
std::string worldTime(uint64_t nanoseconds);

/// A word for Graphviz, in quotes.
std::string dotWord(const std::string& text);

/// The name of a user, or the number of one that has none.
std::string userName(uid_t user);

/// "ConfigMgr, process 4711", or without the latter where it is not known.
std::string describe(const std::string& name, const std::optional<linx::inspect::Process>& process);

/// To be called at the end: throws a Failure when the output could not be written.
void finishOutput();

/// Writes a line to standard output.
void printLine(const std::string& line);

/// A document, or one object of many, on one line; what is not UTF-8 in it is replaced.
std::string textOf(const nlohmann::ordered_json& document);

/// Writes it to standard output.
void printJson(const nlohmann::ordered_json& document);

}  // namespace tools

#endif
