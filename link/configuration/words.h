#ifndef LINXIPC_LINK_CONFIGURATION_WORDS_H
#define LINXIPC_LINK_CONFIGURATION_WORDS_H

#include <string>
#include <vector>

/// What the words of a configuration have to look like. Each answers what is wrong and what would be right; or
/// nothing.
namespace linx::link {

enum class Use { listen, connect };

/// Only numbers: to look a name up may take seconds, in which nothing is carried on any link.
std::string troubleWithAddress(const std::string& address, Use use);
std::string troubleWithPath(const std::string& path);
std::string troubleWithKey(const std::string& key);
/// A link stands for the first part of names, so it has no slash.
std::string troubleWithLinkName(const std::string& name);
std::string troubleWithImport(const std::string& name);
/// A name, or how names begin and then `*`.
std::string troubleWithExport(const std::string& pattern);

/// The word that was probably meant; empty when none is near.
std::string nearest(const std::string& word, const std::vector<std::string>& known);

}  // namespace linx::link

#endif
